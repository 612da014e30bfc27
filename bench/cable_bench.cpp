// The shipped executable on a simulated board, streamed to flat out: bytes a second through the cable, and
// processor seconds of the service per gigabyte. Beside it a bare program that reads the same endpoint 512
// bytes at a time and throws them away, which is what the cable itself costs. Both once more with a client at
// the relay's port; the bare program then copies each read to it. The bare program is this executable,
// started again.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "sim/board.h"
#include "sim/host.h"
#include "sim/loopback.h"

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
    explicit Client(std::uint16_t port) : fd_{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        const sockaddr_in address = sim::loopback(port);
        is_connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        reader_ = std::thread{[this] {
            std::vector<char> buffer(1 << 16);
            while (recv(fd_, buffer.data(), buffer.size(), 0) > 0) {
            }
        }};
    }
    ~Client() {
        shutdown(fd_, SHUT_RDWR);
        reader_.join();
        close(fd_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool is_connected() const { return is_connected_; }

  private:
    int fd_;
    bool is_connected_ = false;
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

void run_bare(benchmark::State& state, const char* mode) {
    sim::Board board{board_options()};
    board.start({std::filesystem::read_symlink("/proc/self/exe").string(), {mode}, {}, ""});
    const bool with_client = std::string_view{mode} == "copy";
    const std::unique_ptr<Client> client = with_client ? connect_client(board) : nullptr;
    if (with_client && !client) {
        return state.SkipWithError("no client");
    }
    if (!board.cable().wait_for_device(patience) || !board.cable().plug(sim::Speed::high) ||
        !board.cable().inject({sim::suspend_event()}, patience) ||
        !board.cable().wait_for_endpoints(patience)) {
        return state.SkipWithError("no device");
    }
    stream(state, board);
}

BENCHMARK_CAPTURE(run_service, alone, false)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_bare, reader, "read")->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_service, relay, true)->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(run_bare, copier, "copy")->UseRealTime()->Unit(benchmark::kMillisecond)->MinTime(3);

// Listens where the relay does, with its options, and waits for the client.
int accept_client() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    const int buffer_size = 3'000'000;
    setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(listener, SOL_SOCKET, SO_SNDBUF, &buffer_size, sizeof buffer_size);
    const sockaddr_in address = sim::loopback(6000);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 1) != 0) {
        return -1;
    }
    return accept(listener, nullptr, nullptr);
}

// The bare program: opens the OUT endpoint when it is told to with a suspend event, and reads; copies each
// read to a client, or throws it away when there is none (-1).
int read_and_copy(int client) {
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
    for (;;) {
        const ssize_t size = read(out, buffer.data(), buffer.size());
        if (size <= 0) {
            return 0;
        }
        if (client >= 0 &&
            send(client, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) != size) {
            return 1;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "read") == 0) {
        return read_and_copy(-1);
    }
    if (argc == 2 && std::strcmp(argv[1], "copy") == 0) {
        return read_and_copy(accept_client());
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
