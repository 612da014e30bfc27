#include "sim/session.h"

#include <algorithm>
#include <cstdio>

namespace sim {
namespace {

using std::chrono::seconds;

constexpr int code_of_failed_read = 3;
constexpr int code_of_watchdog = 2;
constexpr Time watchdog_limit = seconds{5};
constexpr Time time_to_end = seconds{20};
constexpr Milliseconds a_moment{20};

std::string describe_end(int code) {
    return code > 128 ? "was ended by signal " + std::to_string(code - 128)
                      : "ended with exit code " + std::to_string(code);
}

}  // namespace

Session::Session(Cable& cable, Service service, SessionOptions options)
    : cable_{cable}, service_{std::move(service)}, options_{std::move(options)} {}

std::string Session::prepare() {
    if (!options_.replay.empty()) {
        replay_ = std::make_unique<ReplaySource>();
        if (!replay_->open(options_.replay, options_.flat_out, Time{0})) {
            return options_.replay + " can't be read, or holds no stream";
        }
    } else if (!options_.clip.empty()) {
        clip_ = load_clip(options_.clip);
        if (clip_.empty()) {
            return options_.clip + " can't be read, or is no H.264 byte stream";
        }
    }
    if (!options_.log.empty() && !log_.open(options_.log)) {
        return options_.log + " can't be written";
    }
    if (!options_.times.empty() && !times_.open(options_.times)) {
        return options_.times + " can't be written";
    }
    return {};
}

void Session::say(const std::string& text) const {
    const Time now = stopwatch_ ? stopwatch_->now() : Time{0};
    std::printf("%9.3f  %s\n", std::chrono::duration<double>(now).count(), text.c_str());
    std::fflush(stdout);
}

void Session::problem(const std::string& text) {
    say("PROBLEM: " + text);
    problems_.push_back(text);
}

void Session::wait(Time length, const std::atomic<bool>& stop) const {
    const Time end = stopwatch_->now() + length;
    while (!stop && stopwatch_->now() < end) {
        std::this_thread::sleep_for(std::min<Time>(end - stopwatch_->now(), a_moment));
    }
}

bool Session::start_and_enumerate() {
    service_.start();
    ++starts_;
    camera_.expect_new_sequence();
    if (const auto code = service_.wait_for_end(Milliseconds{0})) {
        problem("the service " + describe_end(*code));
        return false;
    }
    if (options_.faults.full_speed) {
        enumerate(cable_, Speed::full);  // the service may end in the middle of it
        return true;
    }
    const std::vector<std::string> complaints = enumerate(cable_);
    for (const std::string& complaint : complaints) {
        problem("enumeration: " + complaint);
    }
    if (complaints.empty()) {
        say("device enumerated as it must be");
    }
    return complaints.empty();
}

// A recording goes on where it was; the camera's own stream begins anew, with a parameter set.
void Session::make_source() {
    if (replay_) {
        return;
    }
    corrupted_packets_ += live_ ? live_->corrupted_packets() : 0;
    const LiveSource::Options live{options_.frames_per_second, options_.flat_out, options_.faults.stream,
                                   &times_};
    live_ = std::make_unique<LiveSource>(clip_, camera_, live, stopwatch_->now());
}

bool Session::run(const std::atomic<bool>& stop) {
    if (!start_and_enumerate()) {
        return false;
    }
    stopwatch_.emplace();
    std::string last;
    Player player{cable_, camera_, log_, *stopwatch_, [this, last](const std::string& meaning) mutable {
                      if (meaning != last) {
                          say("<- " + meaning);
                      }
                      last = meaning;
                  }};
    if (options_.faults.full_speed) {
        end_as_expected(code_of_failed_read, stop);
    } else {
        play(player, stop);
    }
    played_ = stopwatch_->now();
    cpu_seconds_ = service_.cpu_seconds();
    tally_ = player.tally();
    transfers_ = player.transfers_received();
    return problems().empty();
}

void Session::play(Player& player, const std::atomic<bool>& stop) {
    const Time end = options_.length.value_or(Time::max());
    auto interruption = options_.faults.interruptions.begin();
    make_source();
    while (!stop) {
        Source& source = replay_ ? static_cast<Source&>(*replay_) : *live_;
        const bool interrupted =
            interruption != options_.faults.interruptions.end() && interruption->at < end;
        const PlayEnd reason = player.play(source, interrupted ? interruption->at : end, stop);
        if (reason == PlayEnd::device_gone) {
            const auto code = service_.wait_for_end(std::chrono::duration_cast<Milliseconds>(time_to_end));
            problem(code ? "the service " + describe_end(*code) : "the device is gone");
            return;
        }
        if (reason == PlayEnd::source_ended || !interrupted || stop) {
            break;
        }
        if (!interrupt(*interruption++, stop)) {
            return;
        }
    }
    if (replay_ && replay_->damaged()) {
        say("the recording is cut off or damaged at its end");
    }
    if (!player.send_closing_frame()) {
        problem("the device is gone");
    } else if (const auto code = service_.wait_for_end(Milliseconds{0})) {
        problem("the service " + describe_end(*code));
    }
}

bool Session::interrupt(const Interruption& interruption, const std::atomic<bool>& stop) {
    if (interruption.kind == Interruption::Kind::silence && interruption.length <= watchdog_limit) {
        say("silence");
        wait(interruption.length, stop);
        say("the stream goes on");
        return true;
    }
    int expected_code = code_of_watchdog;
    if (interruption.kind == Interruption::Kind::unplug) {
        expected_code = code_of_failed_read;
        say("cable pulled");
        cable_.pull();
        wait(interruption.length, stop);
    } else {
        say("silence, until the service gives up");
    }
    if (!end_as_expected(expected_code, stop) || !start_and_enumerate()) {
        return false;
    }
    make_source();
    return true;
}

bool Session::end_as_expected(int expected_code, const std::atomic<bool>& stop) {
    const Time deadline = stopwatch_->now() + time_to_end;
    std::optional<int> code;
    while (!code && !stop && stopwatch_->now() < deadline) {
        code = service_.wait_for_end(a_moment);
    }
    if (stop) {
        return false;
    }
    const std::string expected = "exit code " + std::to_string(expected_code);
    if (code == expected_code) {
        say("the service ended with " + expected + ", as it must");
        return true;
    }
    problem(code ? "the service " + describe_end(*code) + " where it must be " + expected
                 : "the service did not end, as it must here with " + expected);
    return false;
}

std::vector<std::string> Session::problems() const {
    std::vector<std::string> all = problems_;
    for (const std::string& complaint : camera_.complaints()) {
        all.push_back("packet: " + complaint);
    }
    return all;
}

}  // namespace sim
