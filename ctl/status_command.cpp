#include <cstdio>
#include <optional>

#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

// How soon a change of the link is seen.
constexpr auto look_interval = 100ms;
// Until then the frames and the records have shown that they come, or that they don't.
constexpr auto settling_time = 1500ms;

int say_silence(const BoardOptions& board) {
    std::fprintf(stderr, "ardenvue-ctl: %s\n", silence_message(board.status_port).c_str());
    return silent;
}

void print_table(const ArdenvueLink* link) {
    const char* key = nullptr;
    const char* value = nullptr;
    for (std::size_t i = 0; ardenvue_link_pair(link, i, &key, &value) == 0; ++i) {
        std::printf("%-16s %s\n", key, value);
    }
}

int watch_table(const BoardOptions& board, const StatusOptions& options, ArdenvueLink* link) {
    auto deadline = Clock::now() + seconds(options.timeout);
    while (!stop_requested()) {
        const int code = ardenvue_link_wait(link, ARDENVUE_STATUS_LINE, milliseconds_until(deadline));
        if (code == ARDENVUE_ERROR_INTERRUPTED) {
            continue;
        }
        if (code < 0) {
            return say_silence(board);
        }
        deadline = Clock::now() + seconds(options.timeout);
        print_table(link);
        if (!options.watch) {
            return done;
        }
        std::puts("\n");
        if (!hand_on_output()) {
            return unusable;
        }
    }
    return done;
}

// The link's state as JSON: printed at each line, and whenever the link has changed.
class JsonWatch {
  public:
    explicit JsonWatch(const Link& link) : owner_{link}, link_{link.get()} {}

    // Waits for a line or a change, a moment at most. True for a line.
    bool look() {
        const int code = ardenvue_link_wait(link_, ARDENVUE_STATUS_LINE, look_interval / 1ms);
        look_at_frames(owner_);
        is_due_ = is_due_ || code > 0;
        return code > 0;
    }
    // Nothing that has only not come yet is taken for missing.
    bool is_settled() const {
        return Clock::now() - start_ >= settling_time ||
               (ardenvue_link_state(link_) == ARDENVUE_LINK_LIVE &&
                ardenvue_link_report_time(link_, ARDENVUE_STATUS_LINE) != 0 &&
                ardenvue_link_report_time(link_, ARDENVUE_GIMBAL_FOCUS) != 0);
    }
    bool is_due() const { return is_due_ || printed_ != ardenvue_link_state(link_); }

    void print() {
        char text[ARDENVUE_STATE_JSON_SIZE];
        ardenvue_state_json(link_, text, sizeof text);
        printed_ = ardenvue_link_state(link_);
        is_due_ = false;
        std::puts(text);
    }

  private:
    const Link& owner_;
    ArdenvueLink* link_;
    const Clock::time_point start_ = Clock::now();
    bool is_due_ = false;  // a line has come that wasn't printed
    std::optional<ArdenvueLinkState> printed_;
};

int watch_json(const BoardOptions& board, const StatusOptions& options, const Link& link) {
    if (!link.get_deleter().bridge && ardenvue_link_watch_frames(link.get(), board.ring_name.c_str()) != 0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", ardenvue_link_problem(link.get()));
        return bad_usage;
    }
    JsonWatch state{link};
    bool has_line = false;
    auto deadline = Clock::now() + seconds(options.timeout);
    while (!stop_requested()) {
        if (state.look()) {
            has_line = true;
            deadline = Clock::now() + seconds(options.timeout);
        }
        const bool is_over = Clock::now() >= deadline;
        if (is_over || (state.is_settled() && state.is_due() && (has_line || options.watch))) {
            state.print();
        }
        if (!hand_on_output()) {
            return unusable;
        }
        if (is_over) {
            return say_silence(board);
        }
        if (!options.watch && has_line && !state.is_due()) {
            return done;
        }
    }
    return done;
}

}  // namespace

int run_status(const BoardOptions& board, const StatusOptions& options) {
    Link link;
    if (const int code = open_link(board, link); code != done) {
        return code;
    }
    return options.json ? watch_json(board, options, link) : watch_table(board, options, link.get());
}

}  // namespace ctl
