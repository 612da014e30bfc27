#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "ctl/exit_codes.h"
#include "ctl/monitor_screen.h"
#include "ctl/monitor_state.h"
#include "ctl/output.h"
#include "ctl/play_report.h"
#include "ctl/script_player.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "ctl/video_feed.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr int pass_milliseconds = 20;
constexpr int most_reports = 1000;  // at a time, so that a flood can't keep the monitor from all else
constexpr auto redraw_interval = 200ms;
constexpr auto line_interval = 1s;
// Rates are taken over this time.
constexpr auto rate_interval = 1s;

// True once per interval.
class Every {
  public:
    explicit Every(Clock::duration interval) : interval_{interval}, next_{Clock::now() + interval} {}
    bool due() {
        const auto now = Clock::now();
        if (now < next_) {
            return false;
        }
        next_ = std::max(next_ + interval_, now);
        return true;
    }

  private:
    Clock::duration interval_;
    Clock::time_point next_;
};

struct Rates {
    ArdenvueVideoTotals then{};
    Clock::time_point time = Clock::now();

    void update(MonitorState& state) {
        const auto now = Clock::now();
        const double passed = in_seconds(now - time);
        state.frames_per_second = static_cast<double>(state.ring.frames - then.frames) / passed;
        state.bits_per_second = static_cast<double>(state.ring.bytes - then.bytes) * 8 / passed;
        then = state.ring;
        time = now;
    }
};

bool has_terminal() {
    const char* terminal = std::getenv("TERM");
    return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1 && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

void print_line(const std::string& text) {
    std::puts(text.c_str());
    hand_on_output();
}

// Shows the state from time to time, on a screen or as lines.
class Display {
  public:
    explicit Display(bool on_a_screen) {
        if (on_a_screen) {
            screen_.emplace();
        }
    }

    // False once the user wants to leave, or nothing can be shown any more.
    bool show(const MonitorState& state) {
        if (screen_ && redraw_.due()) {
            screen_->draw(state);
        } else if (!screen_ && line_.due()) {
            print_line(summary_line(state));
        }
        return screen_ ? !screen_->quit_requested() : hand_on_output();
    }

    // The screen shows the script's commands anyway.
    void show_played(const PlayedCommand& played) const {
        if (!screen_) {
            print_line(played_text(played));
        }
    }

  private:
    std::optional<MonitorScreen> screen_;
    Every redraw_{redraw_interval};
    Every line_{line_interval};
};

// Takes in what arrived.
void listen(ArdenvueLink* link) {
    int code = ardenvue_link_wait(link, ARDENVUE_ANY_REPORT, pass_milliseconds);
    for (int i = 0; code > 0 && i < most_reports; ++i) {
        code = ardenvue_link_wait(link, ARDENVUE_ANY_REPORT, 0);
    }
}

void update(MonitorState& state, const Link& link, const VideoFeed& video) {
    state.now = Clock::now();
    if (video.totals().frames != state.ring.frames) {
        state.frame_time = state.now;
        ardenvue_link_saw_frame(state.link, std::chrono::nanoseconds{state.now.time_since_epoch()}.count());
    }
    ardenvue_link_gimbal_focus(state.link, &state.record);
    state.service = ardenvue_link_service(state.link);
    state.ring = video.totals();
    state.ring_problem = video.open()                ? ""
                         : link.get_deleter().bridge ? "no frame ring here; the gateway serves the picture"
                                                     : video.problem();
}

// Listens, reads the ring and plays the script until something ends it: the time, the script, the user, a
// signal.
void watch(const MonitorOptions& options, const Link& link, VideoFeed& video, ScriptPlayer& player,
           MonitorState& state) {
    Display display{!options.lines && has_terminal()};
    Every rate{rate_interval};
    Rates rates;
    const auto start = Clock::now();
    while (!stop_requested() && (options.seconds <= 0 || Clock::now() < start + seconds(options.seconds))) {
        listen(state.link);
        look_at_frames(link);
        video.poll();
        state.running_seconds = in_seconds(Clock::now() - start);
        update(state, link, video);
        if (rate.due()) {
            rates.update(state);
            state.picture_size = video.picture_size();
        }
        if (state.player != nullptr && player.step(state.link)) {
            display.show_played(player.played().back());
        }
        const bool script_is_all = state.player != nullptr && options.seconds <= 0;
        if (!display.show(state) || (script_is_all && player.finished())) {
            break;
        }
    }
    state.picture_size = video.picture_size();
}

int script_code(const ScriptPlayer& player) {
    bool all = player.played().size() == player.command_count();
    for (const PlayedCommand& played : player.played()) {
        all = all && (played.outcome == Outcome::confirmed || played.outcome == Outcome::not_reported);
    }
    return all ? done : not_confirmed;
}

}  // namespace

int run_monitor(const BoardOptions& board, const MonitorOptions& options) {
    ScriptPlayer player;
    if (!options.play.empty()) {
        if (const std::string problem = player.load(options.play); !problem.empty()) {
            std::fprintf(stderr, "ardenvue-ctl: %s\n", problem.c_str());
            return bad_usage;
        }
        player.set_patience(seconds(options.wait));
    }
    Link link;
    if (const int code = open_link(board, link); code != done) {
        return code;
    }
    ardenvue_link_keep_present(link.get(), true);
    VideoFeed video{board.ring_name, board.run_dir};
    MonitorState state;
    state.link = link.get();
    state.player = options.play.empty() ? nullptr : &player;
    const auto start = Clock::now();
    watch(options, link, video, player, state);
    if (!options.report.empty() && !write_report(options.report, state, video, start)) {
        std::fprintf(stderr, "ardenvue-ctl: can't write %s: %s\n", options.report.c_str(),
                     std::strerror(errno));
        return unusable;
    }
    if (state.player != nullptr) {
        return script_code(player);
    }
    return state.has_line() ? done : silent;
}

}  // namespace ctl
