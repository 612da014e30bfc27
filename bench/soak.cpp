// The shipped executable on the simulated board under everything at once, for as long as asked: 25 Mbit/s of
// video, the camera's pushes, a main application that reads every frame and sends five commands a second, a
// client of the relay, and a client that sends what no main application would. At the end nothing may be lost
// and nothing may have grown.
#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "bench/campaign.h"
#include "bench/soak_clients.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "sim/board/board.h"
#include "sim/remote/host.h"
#include "sim/remote/player.h"

namespace {

using namespace campaign;

constexpr double bits_per_second = 25e6;
constexpr double frames_per_second = 30;
constexpr sim::Milliseconds patience = 20s;
// The first samples are of a service that still touches memory for the first time.
constexpr std::size_t warm_up = 20, window = 20;
constexpr long memory_slack_kb = 256;

std::uint16_t port_of(const ArdenvueLink* link) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(ardenvue_link_descriptor(link), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

ctl::Link any_link() {
    ctl::BoardOptions any_port;
    any_port.status_port = 0;
    ctl::Link link;
    if (ctl::open_link(any_port, link) != 0) {
        throw std::runtime_error{"no socket for the status"};
    }
    return link;
}

// Sends empty frames until the condition holds: they bring the last frame through, and the service writes
// only between two reads. False when it never held.
bool until(sim::Player& player, const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + patience;
    while (!condition()) {
        if (Clock::now() > deadline || !player.send_closing_frame()) {
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

// True when the last samples are the first ones after the warm-up but for the slack.
bool judge_samples(const std::vector<ProcessFigures>& samples) {
    if (samples.size() < warm_up + 2 * window) {
        return judge("samples of the process", std::to_string(samples.size()), false);
    }
    const auto begin = samples.begin() + warm_up;
    const ProcessFigures first = least_of({begin, begin + window});
    const ProcessFigures last = least_of({samples.end() - window, samples.end()});
    bool right = judge("memory of its own, warm and at the end",
                       text("%ld kB, %ld kB", first.anonymous_kb, last.anonymous_kb),
                       first.anonymous_kb > 0 && last.anonymous_kb <= first.anonymous_kb + memory_slack_kb);
    right &= judge("descriptors", text("%d, %d", first.descriptors, last.descriptors),
                   first.descriptors == last.descriptors);
    right &= judge("threads", text("%d, %d", first.threads, last.threads), first.threads == last.threads);
    return right;
}

bool soak(double seconds) {
    const ctl::Link owned = any_link();
    ArdenvueLink* const link = owned.get();
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    sim::Board board{options};
    board.start({SERVICE_PATH, {"-s", std::to_string(port_of(link))}, {}, ""});
    if (!sim::enumerate(board.cable()).empty() || !board.cable().wait_for_endpoints(patience)) {
        throw std::runtime_error{"the board did not come up: " + board.errors()};
    }
    const std::vector<sim::AccessUnit> clip =
        dense_clip(CLIPS "/1920x1080.h264", bits_per_second, frames_per_second);
    Commands under_way;
    sim::Camera camera;
    sim::PacketLog log;
    const sim::Stopwatch stopwatch;
    std::atomic<bool> stop{false};
    sim::Player player{board.cable(), camera, log, stopwatch,
                       [&](const std::string& meaning) { under_way.arrived(meaning); }};
    Application application{link, board, under_way};
    Laptop laptop{board.relay_port(patience).value_or(0)};
    if (!until(player, [&] { return laptop.bytes() > 0; })) {
        throw std::runtime_error{"the relay passes nothing on: " + board.errors()};
    }
    Misbehaving misbehaving{application};

    const auto start = Clock::now();
    const double cpu = board.cpu_seconds();
    sim::LiveSource source{clip, camera, {frames_per_second, false, {}}, stopwatch.now()};
    // In short pieces, so that a signal ends it in order.
    const sim::Time end =
        stopwatch.now() + std::chrono::duration_cast<sim::Time>(std::chrono::duration<double>(seconds));
    while (!ctl::stop_requested() && stopwatch.now() < end) {
        if (player.play(source, std::min(end, stopwatch.now() + 1s), stop) != sim::PlayEnd::stopped) {
            break;
        }
    }
    const double took = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpu_used = board.cpu_seconds() - cpu;
    misbehaving.end();
    application.send_no_more();
    const formats::VideoTally& sent = player.tally().video;
    until(player, [&] {
        return application.frames_read() >= sent.frames && laptop.frames() >= sent.frames &&
               under_way.lost() == 0;
    });
    const auto ending = board.wait_for_end(0ms);
    application.end();
    laptop.end();

    const double mbit = static_cast<double>(sent.bytes) * 8 / took / 1e6;
    const ArdenvueVideoTotals ring = application.video().totals();
    const std::vector<double> times = under_way.milliseconds();
    std::printf("\nSoak of %.0f s\n", took);
    bool right = judge("the service runs on", ending ? text("ended, %d", ending->code) : "yes", !ending);
    note("video, pushes",
         text("%.2f Mbit/s, %llu", mbit, static_cast<unsigned long long>(player.tally().packets)));
    right &= judge(
        "frames sent, read from the ring, missed",
        text("%llu, %llu, %llu", static_cast<unsigned long long>(sent.frames),
             static_cast<unsigned long long>(ring.frames), static_cast<unsigned long long>(ring.missed)),
        sent.frames > 0 && ring.frames == sent.frames && ring.missed == 0);
    right &=
        judge("their digest", text("%016llx", static_cast<unsigned long long>(application.video().digest())),
              application.video().digest() == sent.digest);
    right &= judge("the same at the relay's client",
                   text("%llu, %.1f MB", static_cast<unsigned long long>(laptop.video().frames),
                        static_cast<double>(laptop.bytes()) / 1e6),
                   laptop.video().digest == sent.digest && !laptop.dropped());
    right &= judge("commands sent, lost",
                   text("%llu, %llu", static_cast<unsigned long long>(under_way.sent()),
                        static_cast<unsigned long long>(under_way.lost())),
                   under_way.sent() > 0 && under_way.lost() == 0);
    note("command to packet, median, 99 %, longest",
         text("%.1f, %.1f, %.1f ms", quantile(times, 0.5), quantile(times, 0.99), quantile(times, 1)));
    right &= judge("datagrams of the misbehaving client", std::to_string(misbehaving.sent()),
                   misbehaving.sent() > 0);
    right &= judge("complaints of the camera", std::to_string(camera.complaints().size()),
                   camera.complaints().empty());
    ArdenvueLinkTotals totals;
    ardenvue_link_totals(link, &totals);
    note("status lines", std::to_string(totals.status_lines));
    note("processor time of the service", text("%.1f %%", 100 * cpu_used / took));
    right &= judge_samples(application.samples());
    std::printf("%s\n", right ? "Nothing lost, nothing grown." : "The soak failed. The service said last:");
    if (!right) {
        const std::string errors = board.errors();
        std::printf("%s\n",
                    errors.substr(errors.size() - std::min<std::size_t>(errors.size(), 2'000)).c_str());
    }
    return right;
}

}  // namespace

int main(int argc, char** argv) try {
    const double seconds = argc == 2 ? std::strtod(argv[1], nullptr) : 0;
    if (seconds < 60) {
        std::fprintf(stderr, "usage: %s SECONDS    60 at least\n", argv[0]);
        return 2;
    }
    ctl::catch_stop_signals();
    return soak(seconds) ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return 2;
}
