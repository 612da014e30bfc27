// How long a command takes from its datagram to its packet on the IN endpoint, while video streams in: the
// shipped executable, and the same with an ordinary mutex for the lock of the USB link, on the simulated
// board. Next to the times, which hold the machine's scheduling too, stands how many reads the service made
// in the meantime.
#include <arpa/inet.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ctl/service_link.h"
#include "sim/aircraft/packet.h"
#include "sim/board/board.h"
#include "sim/remote/host.h"

namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::size_t packet_size = 512;
constexpr sim::Milliseconds patience{20'000};

struct Stream {
    const char* name;
    Clock::duration packet_interval;  // 0: as fast as the service reads
};

constexpr Stream streams[] = {
    {"25 Mbit/s", std::chrono::nanoseconds{163'840}},  // 512 bytes
    {"flat out", {}},
};

struct Sample {
    double microseconds;
    double reads;
};

// Video frames of 58 packets each, sent by a thread of its own until the end of its life.
class Video {
  public:
    Video(sim::Cable& cable, const Stream& stream)
        : sender_{[this, &cable, interval = stream.packet_interval] { send(cable, interval); }} {}
    ~Video() {
        stop_ = true;
        sender_.join();
    }
    Video(const Video&) = delete;
    Video& operator=(const Video&) = delete;

    // Packets that the service has read.
    std::uint64_t reads() const { return reads_; }

  private:
    void send(sim::Cable& cable, Clock::duration interval) {
        prctl(PR_SET_TIMERSLACK, 1);
        const sim::Bytes payload(58 * packet_size - formats::frame_header_size);
        const sim::Bytes frame = sim::encode_frame(formats::FrameType::video, payload);
        Clock::time_point next = Clock::now();
        for (std::size_t at = 0; !stop_; at = (at + packet_size) % frame.size()) {
            if (!cable.bulk_out(std::span{frame}.subspan(at, packet_size))) {
                return;
            }
            ++reads_;
            next += interval;
            std::this_thread::sleep_until(next);
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<std::uint64_t> reads_{0};
    std::thread sender_;
};

std::uint16_t open_application(ctl::Link& application) {
    ctl::BoardOptions any_port;
    any_port.status_port = 0;
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (ctl::open_link(any_port, application) != 0 ||
        getsockname(ardenvue_link_descriptor(application.get()), reinterpret_cast<sockaddr*>(&address),
                    &length) != 0) {
        throw std::runtime_error{"no socket for the status"};
    }
    return ntohs(address.sin_port);
}

std::vector<Sample> send_commands(ArdenvueLink* application, sim::Cable& cable, const Video& video,
                                  std::size_t count) {
    const auto limit = static_cast<int>(sim::Milliseconds{patience}.count());
    if (ardenvue_link_wait(application, ARDENVUE_STATUS_LINE, limit) < 0) {
        throw std::runtime_error{"no status line"};
    }
    std::mt19937 random{1};
    std::uniform_int_distribution<int> pause{500, 4000};
    std::vector<Sample> samples;
    while (samples.size() < count) {
        std::this_thread::sleep_for(std::chrono::microseconds{pause(random)});
        while (ardenvue_link_wait(application, ARDENVUE_ANY_REPORT, 0) > 0) {
        }
        const std::uint64_t reads = video.reads();
        const Clock::time_point sent = Clock::now();
        ardenvue_send_json(application, R"({"cmd":"iso","param":"400"})");
        if (!cable.bulk_in(patience)) {
            throw std::runtime_error{"a command was lost"};
        }
        samples.push_back(
            {Microseconds{Clock::now() - sent}.count(), static_cast<double>(video.reads() - reads)});
    }
    return samples;
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

void report(const std::vector<Sample>& samples, double Sample::*member, const char* format) {
    std::vector<double> values;
    values.reserve(samples.size());
    for (const Sample& sample : samples) {
        values.push_back(sample.*member);
    }
    for (const double share : {0.5, 0.99, 1.0}) {
        std::printf(format, quantile(values, share));
    }
}

void measure(const char* lock, const char* executable, const Stream& stream, std::size_t count) {
    ctl::Link application;
    const std::uint16_t port = open_application(application);
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    sim::Board board{options};
    board.start({executable, {"-s", std::to_string(port)}, {}, ""});
    if (!sim::enumerate(board.cable()).empty() || !board.cable().wait_for_endpoints(patience)) {
        throw std::runtime_error{"the board did not come up: " + board.errors()};
    }
    const Video video{board.cable(), stream};
    const Clock::time_point start = Clock::now();
    const std::vector<Sample> samples = send_commands(application.get(), board.cable(), video, count);
    const double read_time = Microseconds{Clock::now() - start}.count() / static_cast<double>(video.reads());
    std::printf("%-10s  %-11s  %9.1f  ", stream.name, lock, read_time);
    report(samples, &Sample::microseconds, "%9.0f");
    report(samples, &Sample::reads, "%8.0f");
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 2000;
    if (count == 0) {
        std::fprintf(stderr, "usage: %s [commands per line]\n", argv[0]);
        return 2;
    }
    std::printf(
        "%zu commands each     us a read  us: median      99%%      max   reads: median   99%%    max\n",
        count);
    try {
        for (const Stream& stream : streams) {
            measure("fair lock", SERVICE_PATH, stream, count);
            measure("plain mutex", PLAIN_MUTEX_PATH, stream, count);
        }
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
