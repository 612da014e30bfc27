// The shipped executable on a simulated board, streamed to flat out: bytes a second through the cable, and
// processor seconds of the service per gigabyte; beside a bare program that reads the same endpoint 512 bytes
// at a time and throws them away, which is what the cable itself costs. The bare program is this executable,
// started again.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>

#include "sim/board.h"
#include "sim/host.h"

namespace {

using sim::Bytes;
constexpr sim::Milliseconds patience{20'000};

// About a megabyte of video in stream frames of 30,000 payload bytes.
Bytes video_frames() {
    constexpr std::size_t payload = 30'000;
    Bytes frame(8 + payload, 0x11);
    const std::array<std::uint8_t, 8> header = {0x55, 0xCC, 0x4A, 0x57, payload & 0xFF, payload >> 8, 0, 0};
    std::copy(header.begin(), header.end(), frame.begin());
    Bytes frames;
    for (int count = 0; count < 35; ++count) {
        frames.insert(frames.end(), frame.begin(), frame.end());
    }
    return frames;
}

void stream(benchmark::State& state, sim::Board& board) {
    const Bytes frames = video_frames();
    if (!board.cable().bulk_out(frames)) {  // the first frame clears the ring
        return state.SkipWithError("the service is gone");
    }
    const double before = board.cpu_seconds();
    for ([[maybe_unused]] auto _ : state) {
        if (!board.cable().bulk_out(frames)) {
            return state.SkipWithError("the service is gone");
        }
    }
    const auto bytes = static_cast<std::int64_t>(frames.size()) * state.iterations();
    state.SetBytesProcessed(bytes);
    state.counters["cpu_s_per_GB"] = (board.cpu_seconds() - before) / static_cast<double>(bytes) * 1e9;
}

sim::BoardOptions board_options() {
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    return options;
}

void service(benchmark::State& state) {
    sim::Board board{board_options()};
    board.start({SERVICE_PATH, {"-s", "9"}, {}, ""});
    if (!sim::enumerate(board.cable()).empty() || !board.cable().wait_for_endpoints(patience)) {
        return state.SkipWithError("no enumeration");
    }
    stream(state, board);
}
BENCHMARK(service)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

void bare_reader(benchmark::State& state) {
    sim::Board board{board_options()};
    board.start({std::filesystem::read_symlink("/proc/self/exe").string(), {"read"}, {}, ""});
    if (!board.cable().wait_for_device(patience) || !board.cable().plug(sim::Speed::high) ||
        !board.cable().inject({sim::suspend_event()}, patience) ||
        !board.cable().wait_for_endpoints(patience)) {
        return state.SkipWithError("no device");
    }
    stream(state, board);
}
BENCHMARK(bare_reader)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

// The bare program: opens the OUT endpoint when the test says so with a suspend event, and reads.
int read_and_throw_away() {
    const std::array<std::uint8_t, 86> configuration = {
        0x00, 0x00, 0x00, 0x00,                                                              // tag
        0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,                                // full speed
        0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,                                //
        0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,  //
        0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,                                // high speed
        0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,                                //
        0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00, 0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,  //
        0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0x34, 0x12, 0x78, 0x56, 0,    0,    0, 0, 0, 0x01};
    const std::array<std::uint8_t, 18> endpoint = {1, 0, 0, 0, 7,    5, 0x02, 2, 64,
                                                   0, 0, 7, 5, 0x02, 2, 0,    2, 0};
    const int device = open("/dev/gadget/20980000.usb", O_RDWR);
    if (write(device, configuration.data(), configuration.size()) < 0) {
        return 1;
    }
    std::array<usb_gadgetfs_event, 5> events{};
    do {
        if (read(device, events.data(), sizeof events) <= 0) {
            return 1;
        }
    } while (events[0].type != GADGETFS_SUSPEND);
    const int out = open("/dev/gadget/ep2out", O_RDWR);
    std::array<char, 512> buffer{};
    if (write(out, endpoint.data(), endpoint.size()) < 0) {
        return 1;
    }
    while (read(out, buffer.data(), buffer.size()) > 0) {
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "read") == 0) {
        return read_and_throw_away();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
