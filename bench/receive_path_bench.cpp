// What the reader thread does with each byte, beside the least that could be done: a plain copy of the video,
// a plain checksum over the packets. Both sides of a ratio are taken in turns within one run, on the
// machine's own shared memory names: it refuses to run where they are in use, and removes what it made.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "ardenvue.h"
#include "io/usb_link.h"
#include "link/crc.h"
#include "link/stream.h"
#include "platform/file_descriptor.h"
#include "platform/little_endian.h"
#include "platform/shared_memory.h"
#include "state/camera_decode.h"
#include "video/frame_buffers.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using ardenvue::FrameRing;

constexpr std::size_t payload_size = 30'000;
constexpr std::size_t header_size = 8;
constexpr const char* shared_names[] = {ardenvue::frame_ring_name, ardenvue::transcoding_buffer_name,
                                        ardenvue::camera_state_name};

// Processor time of this thread, so that a busy machine does not count.
double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Diagnostics of the code under test go nowhere for the length of a scope; writing them is part of its cost.
class QuietStderr {
  public:
    QuietStderr() : saved_{dup(STDERR_FILENO)} {
        const FileDescriptor nowhere{open("/dev/null", O_WRONLY | O_CLOEXEC)};
        dup2(nowhere.get(), STDERR_FILENO);
    }
    ~QuietStderr() { dup2(saved_.get(), STDERR_FILENO); }
    QuietStderr(const QuietStderr&) = delete;
    QuietStderr& operator=(const QuietStderr&) = delete;

  private:
    FileDescriptor saved_;
};

// The ring as another process has it.
using Ring = std::unique_ptr<FrameRing, decltype(&unmap_shared_memory)>;

Ring map_ring() {
    return {static_cast<FrameRing*>(map_shared_memory(ardenvue::frame_ring_name, sizeof(FrameRing))),
            unmap_shared_memory};
}

void append_frame(Bytes& stream, std::uint8_t type, std::span<const std::uint8_t> payload) {
    const std::uint8_t header[header_size] = {0x55,
                                              0xCC,
                                              type,
                                              0x57,
                                              static_cast<std::uint8_t>(payload.size()),
                                              static_cast<std::uint8_t>(payload.size() >> 8)};
    stream.insert(stream.end(), std::begin(header), std::end(header));
    stream.insert(stream.end(), payload.begin(), payload.end());
}

// Stands for the read of the endpoint: a call for any size, as the real one. Where the compiler sees that no
// copy exceeds 512 bytes, it puts its own in place of the library's, at a third of the speed; through this
// pointer it sees nothing.
void* (*volatile read_endpoint)(void*, const void*, std::size_t) = std::memcpy;

// The reader's loop with its overflow rule.
void receive(std::span<const std::uint8_t> stream) {
    static std::array<std::uint8_t, rx_buffer_size> buffer;
    static std::uint32_t fill = 0;
    static std::uint32_t searched = 0;
    while (!stream.empty()) {
        const std::size_t size = std::min(stream.size(), usb_read_size);
        read_endpoint(&buffer[fill], stream.data(), size);
        fill += static_cast<std::uint32_t>(size);
        if (fill > rx_fill_limit) {
            fill = 0;
        }
        parse_usb_stream(buffer.data(), fill, searched);
        stream = stream.subspan(size);
    }
}

Bytes random_bytes(std::size_t size, std::mt19937& random) {
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

// Both rates are of payload bytes.
void report_ratio(benchmark::State& state, double bytes, double baseline_seconds, double seconds) {
    const double all_bytes = bytes * static_cast<double>(state.iterations());
    state.counters["baseline_MB/s"] = all_bytes / baseline_seconds / 1e6;
    state.counters["MB/s"] = all_bytes / seconds / 1e6;
    state.counters["ratio"] = baseline_seconds / seconds;
}

// Reads through the parser into the ring, beside memcpy of the same payloads into the same slots. 200
// payloads stay in the caches of a desk machine, 4000 don't.
void receive_path(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::mt19937 random{1};
    Bytes stream;
    stream.reserve(count * (header_size + payload_size));
    for (std::size_t i = 0; i < count; ++i) {
        append_frame(stream, 0x4A, random_bytes(payload_size, random));
    }
    const QuietStderr quiet;
    const Ring ring = map_ring();
    receive(stream);
    double copying = 0;
    double receiving = 0;
    for ([[maybe_unused]] auto iteration : state) {
        double start = now();
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(ring->slots[i % ardenvue::frame_slot_count].payload,
                        &stream[i * (header_size + payload_size) + header_size], payload_size);
        }
        copying += now() - start;
        start = now();
        receive(stream);
        const double elapsed = now() - start;
        receiving += elapsed;
        state.SetIterationTime(elapsed);
    }
    report_ratio(state, static_cast<double>(count * payload_size), copying, receiving);
}
BENCHMARK(receive_path)->Arg(200)->Arg(4000)->UseManualTime()->Unit(benchmark::kMicrosecond);

struct Push {
    std::uint8_t length;
    std::uint8_t set;
    std::uint8_t id;
    int a_second;
};

// Attitude, status, parameters, focus, histogram, battery and power, at the rates of a flight.
constexpr Push pushes[] = {{31, 0x04, 0x05, 20}, {53, 0x02, 0x80, 5}, {106, 0x02, 0x81, 5},
                           {58, 0x02, 0x82, 5},  {77, 0x02, 0x83, 5}, {44, 0x0D, 0x02, 1},
                           {48, 0x0D, 0x01, 1}};

// Random payloads: every text changes with every packet.
Bytes one_second_of_pushes(std::mt19937& random, double& count) {
    Bytes bytes;
    for (const Push& push : pushes) {
        for (int i = 0; i < push.a_second; ++i, ++count) {
            Bytes packet = random_bytes(push.length, random);
            packet[0] = 0x55;
            packet[1] = push.length;
            packet[3] = link_crc8(std::span{packet}.first(3));
            packet[8] = 0x00;
            packet[9] = push.set;
            packet[10] = push.id;
            store_le16(&packet[push.length - 2U], link_crc16(std::span{packet}.first(push.length - 2U)));
            bytes.insert(bytes.end(), packet.begin(), packet.end());
        }
    }
    return bytes;
}

// Packets found, verified and decoded, beside the plain loop of the packet sum over the same bytes.
void scan_and_decode(benchmark::State& state) {
    std::mt19937 random{2};
    Bytes payload;
    double packets = 0;
    for (int second = 0; second < 10; ++second) {
        const Bytes bytes = one_second_of_pushes(random, packets);
        payload.insert(payload.end(), bytes.begin(), bytes.end());
    }
    const QuietStderr quiet;
    scan_camera_packets(payload);
    double summing = 0;
    double scanning = 0;
    for ([[maybe_unused]] auto iteration : state) {
        double start = now();
        std::uint16_t sum = link_crc::initial16;
        for (const std::uint8_t byte : payload) {
            sum = static_cast<std::uint16_t>(link_crc::tables16[0][(sum ^ byte) & 0xFF] ^ (sum >> 8));
        }
        benchmark::DoNotOptimize(sum);
        summing += now() - start;
        start = now();
        scan_camera_packets(payload);
        const double elapsed = now() - start;
        scanning += elapsed;
        state.SetIterationTime(elapsed);
    }
    report_ratio(state, static_cast<double>(payload.size()), summing, scanning);
    state.counters["packets/s"] = packets * static_cast<double>(state.iterations()) / scanning;
}
BENCHMARK(scan_and_decode)->UseManualTime()->Unit(benchmark::kMicrosecond);

void ring_clear(benchmark::State& state) {
    const QuietStderr quiet;
    const Ring ring = map_ring();
    for ([[maybe_unused]] auto iteration : state) {
        ring->clear_request = 1;
        publish_video_frame(std::array<std::uint8_t, 1>{});
    }
}
BENCHMARK(ring_clear)->Unit(benchmark::kMillisecond);

// On objects that an earlier run left, and on new ones. The old mappings stay, as they do in the service, so
// there are few rounds.
void start_up(benchmark::State& state) {
    const QuietStderr quiet;
    for ([[maybe_unused]] auto iteration : state) {
        if (state.range(0) == 1) {
            state.PauseTiming();
            shm_unlink(ardenvue::frame_ring_name);
            shm_unlink(ardenvue::transcoding_buffer_name);
            state.ResumeTiming();
        }
        if (init_frame_buffers() != 0) {
            state.SkipWithError("no frame buffers");
            return;
        }
    }
}
BENCHMARK(start_up)->ArgName("new")->Arg(0)->Arg(1)->Iterations(4)->Unit(benchmark::kMillisecond);

// ---- The worst that a stream can hold ----

Bytes repeated(const Bytes& pattern, std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = pattern[i % pattern.size()];
    }
    return bytes;
}

// One second of pushes in the frames of a flight, over and over: the usual stream beside which the worst ones
// stand.
Bytes usual_stream(std::size_t size) {
    std::mt19937 random{3};
    double packets = 0;
    const Bytes payload = one_second_of_pushes(random, packets);
    Bytes stream;
    while (stream.size() < size) {
        append_frame(stream, 0x49, payload);
    }
    return stream;
}

// The ratio is what a byte of the stream costs to what one of the usual stream does, in turns.
void receive_worst(benchmark::State& state, Bytes stream) {
    const QuietStderr quiet;
    Bytes usual = usual_stream(2'000'000);
    for (Bytes* each : {&usual, &stream}) {
        append_frame(*each, 0x49, {});  // so that the last frame before it is handled at once
    }
    double usual_seconds = 0;
    double seconds = 0;
    for ([[maybe_unused]] auto iteration : state) {
        double start = now();
        receive(usual);
        usual_seconds += now() - start;
        start = now();
        receive(stream);
        const double elapsed = now() - start;
        seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    const auto rounds = static_cast<double>(state.iterations());
    const double rate = rounds * static_cast<double>(stream.size()) / seconds;
    const double usual_rate = rounds * static_cast<double>(usual.size()) / usual_seconds;
    state.counters["usual_MB/s"] = usual_rate / 1e6;
    state.counters["MB/s"] = rate / 1e6;
    state.counters["times_usual"] = usual_rate / rate;
}

// No sync pattern, and what stands for a length is never reached.
void no_sync(benchmark::State& state) {
    receive_worst(state, repeated({0xFF}, 2'000'000));
}
BENCHMARK(no_sync)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Almost a sync pattern, over and over.
void almost_sync(benchmark::State& state) {
    receive_worst(state, repeated({0x55, 0xCC, 0x48, 0x57, 0xFF, 0xFF, 0x55, 0xCC}, 2'000'000));
}
BENCHMARK(almost_sync)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Frames without a payload, one behind the other.
void empty_frames(benchmark::State& state) {
    receive_worst(state, repeated({0x55, 0xCC, 0x49, 0x57, 0, 0, 0, 0}, 2'000'000));
}
BENCHMARK(empty_frames)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Zeros are frames of eight bytes, each reported with a dump.
void dumped_zeros(benchmark::State& state) {
    receive_worst(state, Bytes(2'000'000));
}
BENCHMARK(dumped_zeros)->UseManualTime()->Unit(benchmark::kMicrosecond);

// An "I" payload of nothing but good headers of the longest packets: each has its packet sum taken.
void false_headers(benchmark::State& state) {
    Bytes header = {0x55, 0xF8, 0x04};
    header.push_back(link_crc8(header));
    Bytes stream;
    append_frame(stream, 0x49, repeated(header, 40'000));
    receive_worst(state, std::move(stream));
}
BENCHMARK(false_headers)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Two SPS in turn, of 16x16 and 640x480: each says so and rewrites the two files.
void changing_sizes(benchmark::State& state) {
    mkdir("/run/ardenvue", 0755);  // the directory of the files; it may be there
    Bytes stream;
    append_frame(stream, 0x4A,
                 Bytes{0,    0,    0,    1,    0x67, 0x64, 0x00, 0x0A, 0xAC, 0xD9, 0x5E, 0xC0, 0x44, 0x00,
                       0x00, 0x03, 0x00, 0x04, 0x00, 0x00, 0x03, 0x00, 0xCA, 0x3C, 0x48, 0x96, 0x58});
    append_frame(stream, 0x4A, Bytes{0, 0, 0, 1, 0x67, 0x4D, 0x00, 0x1F, 0xD7, 0xA0, 0x28, 0x0F, 0x64});
    receive_worst(state, repeated(stream, 56'000));
}
BENCHMARK(changing_sizes)->UseManualTime()->Unit(benchmark::kMicrosecond);

bool names_are_free() {
    return std::none_of(std::begin(shared_names), std::end(shared_names),
                        [](const char* name) { return bool{FileDescriptor{shm_open(name, O_RDONLY, 0)}}; });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!names_are_free()) {
        std::fputs("The shared memory of a service is here (/dev/shm): end it and remove that first\n",
                   stderr);
        return 1;
    }
    const bool is_ready = [] {
        const QuietStderr quiet;
        return init_frame_buffers() == 0;
    }();
    if (!is_ready) {
        std::fputs("The frame buffers can't be set up\n", stderr);
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    for (const char* name : shared_names) {
        shm_unlink(name);
    }
    return 0;
}
