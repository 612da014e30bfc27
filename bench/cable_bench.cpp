// The shipped executable on a simulated board, streamed to flat out: bytes a second through the cable, and
// processor seconds of the service per gigabyte. Beside it a bare program that reads the same endpoint 512
// bytes at a time and throws them away, which is what the cable itself costs. Both once more with a client at
// the relay's port; the bare program (bare_reader.cpp) then copies each read to it.
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "sim/board/board.h"
#include "sim/board/loopback.h"
#include "sim/remote/host.h"

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

// A client at the relay's port that throws away what it gets.
class Client {
  public:
    explicit Client(std::uint16_t port) : fd_{sim::connect_to(port)} {
        reader_ = std::thread{[this] {
            std::vector<char> buffer(1 << 16);
            while (recv(fd_.get(), buffer.data(), buffer.size(), 0) > 0) {
            }
        }};
    }
    ~Client() {
        shutdown(fd_.get(), SHUT_RDWR);
        reader_.join();
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool is_connected() const { return static_cast<bool>(fd_); }

  private:
    FileDescriptor fd_;
    std::thread reader_;
};

// None when nobody listens there.
std::unique_ptr<Client> connect_client(const sim::Board& board) {
    const std::optional<std::uint16_t> port = board.relay_port(patience);
    auto client = port ? std::make_unique<Client>(*port) : nullptr;
    return client && client->is_connected() ? std::move(client) : nullptr;
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

void run_service(benchmark::State& state, bool with_client) {
    sim::Board board{board_options()};
    board.start({SERVICE_PATH, {"-s", "9"}, {}, ""});
    if (!sim::enumerate(board.cable()).empty() || !board.cable().wait_for_endpoints(patience)) {
        return state.SkipWithError("no enumeration");
    }
    const std::unique_ptr<Client> client = with_client ? connect_client(board) : nullptr;
    if (with_client && (!client || !board.wait_for("Client connected", patience))) {
        return state.SkipWithError("no relay");
    }
    stream(state, board);
}

void run_bare(benchmark::State& state, bool with_client) {
    sim::Board board{board_options()};
    board.start({BARE_READER_PATH,
                 with_client ? std::vector<std::string>{"copy"} : std::vector<std::string>{},
                 {},
                 ""});
    const std::unique_ptr<Client> client = with_client ? connect_client(board) : nullptr;
    if (with_client && !client) {
        return state.SkipWithError("no client");
    }
    if (!sim::enumerate(board.cable()).empty() || !board.cable().wait_for_endpoints(patience)) {
        return state.SkipWithError("no enumeration");
    }
    stream(state, board);
}

BENCHMARK_CAPTURE(run_service, alone, false)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_bare, reader, false)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_service, relay, true)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_bare, copier, true)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

}  // namespace

BENCHMARK_MAIN();
