#include "gateway/stick_hand.h"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "ardenvue/error.h"

namespace gateway {
namespace {

using namespace std::chrono_literals;

constexpr auto step = 30ms;
// A handle that isn't used for so long is closed.
constexpr auto rest = 2s;

}  // namespace

StickHand::StickHand(std::string record_name, std::string guard_path)
    : record_name_{std::move(record_name)}, guard_path_{std::move(guard_path)}, thread_{[this] { run(); }} {}

StickHand::~StickHand() {
    {
        const std::lock_guard guard{lock_};
        stops_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

std::string StickHand::set(const std::array<double, 3>& inputs) {
    const std::lock_guard guard{lock_};
    std::ranges::transform(inputs, inputs_.begin(),
                           [](double input) { return std::isnan(input) ? 0 : std::clamp(input, -1.0, 1.0); });
    set_at_ = Clock::now();
    changed_.notify_one();
    return problem_;
}

void StickHand::let_go() {
    const std::lock_guard guard{lock_};
    inputs_ = {};
    changed_.notify_one();
}

StickHand::Inputs StickHand::wanted(TimePoint now) const {
    return now - set_at_ < patience ? inputs_ : Inputs{};
}

void StickHand::run() {
    pthread_setname_np(pthread_self(), "sticks");
    std::unique_lock guard{lock_};
    TimePoint moved_at{};
    while (!stops_) {
        const TimePoint now = Clock::now();
        const Inputs inputs = wanted(now);
        moved_at = inputs != Inputs{} ? now : moved_at;
        if (sticks_ == nullptr && inputs == Inputs{}) {
            changed_.wait(guard);
            continue;
        }
        guard.unlock();
        if (now - moved_at > rest) {
            ardenvue_sticks_close(std::exchange(sticks_, nullptr));
        }
        std::string problem = sticks_ != nullptr || inputs != Inputs{} ? write(inputs) : "";
        guard.lock();
        problem_ = std::move(problem);
        changed_.wait_for(guard, step);
    }
    ardenvue_sticks_close(sticks_);
}

std::string StickHand::write(const Inputs& inputs) {
    char reason[ARDENVUE_REASON_SIZE] = "";
    const char* const guard = guard_path_.empty() ? nullptr : guard_path_.c_str();
    if (sticks_ == nullptr &&
        ardenvue_sticks_open(&sticks_, record_name_.c_str(), guard, reason, sizeof reason) != 0) {
        return reason;
    }
    const int code = ardenvue_sticks_set(sticks_, inputs[0], inputs[1], inputs[2]);
    if (code < 0) {
        ardenvue_sticks_close(std::exchange(sticks_, nullptr));
        return ardenvue_error_text(code);
    }
    return "";
}

}  // namespace gateway
