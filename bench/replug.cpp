// The cable pulled and plugged in again, in the middle of frames and while nothing flows, with the service
// under a supervisor as systemd is one: ended, it is started again after a pause, however often. Tells how
// long it takes from plugging in to live video, and that nothing is left behind.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <thread>

#include "ardenvue.h"
#include "bench/campaign.h"
#include "ctl/stop_signal.h"
#include "ctl/video_feed.h"
#include "sim/board/board.h"
#include "sim/remote/host.h"
#include "sim/remote/player.h"

namespace {

using namespace campaign;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using sim::Milliseconds;

constexpr Milliseconds patience = 30s;
constexpr Milliseconds longest_unplugged = 3s;
constexpr int code_of_silence = 2;
constexpr int code_of_pulled_cable = 3;

// Starts the service again whenever it has ended.
class Supervisor {
  public:
    Supervisor(sim::Board& board, Milliseconds pause) : board_{board}, pause_{pause} {
        start();
        thread_ = std::thread{[this] { run(); }};
    }
    ~Supervisor() {
        ending_ = true;
        thread_.join();
    }

    // Of the service that runs, or ran last.
    pid_t process() const { return process_; }
    int starts() const { return starts_; }
    // Endings that no pulled cable and no silence explains. Once there is one, nothing is started any more.
    bool failed() const { return failed_; }
    int endings(int code) const { return code == code_of_silence ? silences_ : pulls_; }

  private:
    void start() {
        board_.start({SERVICE_PATH, {}, {}, ""});
        process_ = board_.process();
        ++starts_;
    }
    void run() try {
        while (!ending_) {
            const auto ending = board_.wait_for_end(20ms);
            if (!ending) {
                continue;
            }
            silences_ += !ending->by_signal && ending->code == code_of_silence;
            pulls_ += !ending->by_signal && ending->code == code_of_pulled_cable;
            if (ending->by_signal ||
                (ending->code != code_of_silence && ending->code != code_of_pulled_cable)) {
                std::fprintf(stderr, "replug: ended with %s %d:\n%s\n", ending->by_signal ? "signal" : "code",
                             ending->code, board_.errors().c_str());
                failed_ = true;
                return;
            }
            std::this_thread::sleep_for(pause_);
            start();
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "replug: %s\n", failure.what());
        failed_ = true;
    }

    sim::Board& board_;
    const Milliseconds pause_;
    std::atomic<pid_t> process_{-1};
    std::atomic<int> starts_{0}, silences_{0}, pulls_{0};
    std::atomic<bool> ending_{false}, failed_{false};
    std::thread thread_;
};

// What is there while video is live; the same every time.
struct Belongings {
    int processes, objects;
    ProcessFigures service;
};

Belongings belongings(const sim::Board& board, pid_t process) {
    std::vector<ProcessFigures> samples;
    int processes = 1'000;
    for (int i = 0; i < 10; ++i) {  // a check of a moment is not in the least of them
        samples.push_back(figures_of(process));
        processes = std::min(processes, processes_with("ARDENVUE_BOARD=" + board.directory()));
        std::this_thread::sleep_for(5ms);
    }
    const std::string name = board.shm_name(ardenvue::frame_ring_name);
    return {processes, shared_objects_with(name.substr(0, name.rfind('.') + 1).substr(name.front() == '/')),
            least_of(samples)};
}

class Campaign {
  public:
    Campaign(sim::Board& board, Milliseconds pause) : board_{board}, supervisor_{board, pause} {}

    // Plugs in, and waits until a frame is in the ring; how many seconds that took. Then video flows, flat
    // out or at its pace. None when it never came.
    std::optional<double> plug_in(bool flat_out) {
        const auto plugged = Clock::now();
        // A service that ends in the middle of it is asked again, as a remote controller does.
        while (!sim::enumerate(board_.cable(), sim::Speed::high, 10s).empty() ||
               !board_.cable().wait_for_endpoints(2s)) {
            board_.cable().pull();
            if (supervisor_.failed() || Clock::now() - plugged > patience) {
                return std::nullopt;
            }
        }
        camera_.expect_new_sequence();
        stop_ = false;
        source_.emplace(clip_, camera_, sim::LiveSource::Options{30, flat_out, {}}, stopwatch_.now());
        player_.emplace(board_.cable(), camera_, log_, stopwatch_, [](const std::string&) {});
        playing_ = std::thread{[this] { player_->play(*source_, sim::Time::max(), stop_); }};
        video_.poll();
        while (video_.totals().frames <= frames_before_) {
            if (supervisor_.failed() || Clock::now() - plugged > patience) {
                return std::nullopt;
            }
            std::this_thread::sleep_for(1ms);
            video_.poll();
        }
        return std::chrono::duration<double>(Clock::now() - plugged).count();
    }

    // Pulls the cable: of a stream in full flow, or one that ended a moment ago.
    void pull(bool idle) {
        if (idle) {
            stop_playing();
            player_->send_closing_frame();
            std::this_thread::sleep_for(300ms);
        }
        const int starts = supervisor_.starts();
        const pid_t process = supervisor_.process();
        board_.cable().pull();
        stop_playing();
        player_.reset();
        // What it had read already reaches the ring before it ends.
        while (!supervisor_.failed() && supervisor_.starts() == starts && figures_of(process).threads > 0) {
            std::this_thread::sleep_for(1ms);
        }
        video_.poll();
        frames_before_ = video_.totals().frames;
    }
    void stop_playing() {
        stop_ = true;
        if (playing_.joinable()) {
            playing_.join();
        }
    }
    ~Campaign() { stop_playing(); }

    const Supervisor& supervisor() const { return supervisor_; }
    const sim::Camera& camera() const { return camera_; }

  private:
    sim::Board& board_;
    Supervisor supervisor_;
    const std::vector<sim::AccessUnit> clip_ = dense_clip(CLIPS "/1920x1080.h264", 25e6, 30);
    sim::Camera camera_;
    sim::PacketLog log_;
    const sim::Stopwatch stopwatch_;
    ctl::VideoFeed video_{board_.shm_name(ardenvue::frame_ring_name), board_.directory() + "/run"};
    std::optional<sim::LiveSource> source_;
    std::optional<sim::Player> player_;
    std::atomic<bool> stop_{false};
    std::thread playing_;
    std::uint64_t frames_before_ = 0;
};

bool replug(int times, Milliseconds pause) {
    sim::BoardOptions options;
    options.library = BOARD_LIBRARY_PATH;
    sim::Board board{options};
    Campaign campaign{board, pause};
    if (!campaign.plug_in(false)) {
        throw std::runtime_error{"no video to begin with"};
    }
    const Belongings first = belongings(board, campaign.supervisor().process());
    Belongings most = first;
    std::mt19937 random{1};
    std::vector<double> seconds[2];  // pulled in the middle of frames, pulled idle
    bool live = true;
    for (int i = 0; i < times && live && !ctl::stop_requested(); ++i) {
        const bool idle = i % 2 == 1;
        campaign.pull(idle);
        std::this_thread::sleep_for(Milliseconds{random() % longest_unplugged.count()});
        const std::optional<double> took = campaign.plug_in(!idle);
        live = took.has_value();
        if (live) {
            seconds[idle].push_back(*took);
            const Belongings now = belongings(board, campaign.supervisor().process());
            most.processes = std::max(most.processes, now.processes);
            most.objects = std::max(most.objects, now.objects);
            most.service.descriptors = std::max(most.service.descriptors, now.service.descriptors);
            most.service.threads = std::max(most.service.threads, now.service.threads);
        }
    }
    const Supervisor& supervisor = campaign.supervisor();
    const std::size_t done = seconds[0].size() + seconds[1].size();
    std::printf("\nReplugged %zu times, %ld ms from an end to the next start\n", done,
                static_cast<long>(pause.count()));
    bool right = judge("video again each time", text("%zu of %d", done, times),
                       done == static_cast<std::size_t>(times));
    const char* const kinds[] = {"pulled in the middle of frames: median, longest",
                                 "pulled while nothing flows: median, longest"};
    for (const bool idle : {false, true}) {
        note(kinds[idle], text("%.2f s, %.2f s", quantile(seconds[idle], 0.5), quantile(seconds[idle], 1)));
    }
    right &=
        judge("ended by the pulled cable, by silence",
              text("%d, %d", supervisor.endings(code_of_pulled_cable), supervisor.endings(code_of_silence)),
              !supervisor.failed());
    const auto same = [&right](const char* what, int at_first, int at_most) {
        right &= judge(what, text("%d, %d", at_first, at_most), at_first > 0 && at_most == at_first);
    };
    same("processes on the board, at first and at most", first.processes, most.processes);
    same("shared-memory objects", first.objects, most.objects);
    same("descriptors of the service", first.service.descriptors, most.service.descriptors);
    same("threads of the service", first.service.threads, most.service.threads);
    right &= judge("complaints of the camera", std::to_string(campaign.camera().complaints().size()),
                   campaign.camera().complaints().empty());
    std::printf("%s\n",
                right ? "Video came back each time, nothing was left behind." : "The campaign failed.");
    return right;
}

}  // namespace

int main(int argc, char** argv) try {
    const int times = argc == 3 ? std::atoi(argv[1]) : 0;
    if (times < 1) {
        std::fprintf(stderr, "usage: %s TIMES MILLISECONDS    from an end to the next start\n", argv[0]);
        return 2;
    }
    ctl::catch_stop_signals();
    return replug(times, Milliseconds{std::atoi(argv[2])}) ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "replug: %s\n", failure.what());
    return 2;
}
