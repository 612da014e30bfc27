// The hand of whoever has the controls on the stick inputs. It holds the library's handle, and so its guard,
// only while a stick is moved: at other times the inputs belong to the main application.
#pragma once

#include <array>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "ardenvue/sticks.h"
#include "gateway/clock.h"

namespace gateway {

class StickHand {
  public:
    // Inputs that are not renewed for so long are 0 from then on. With the 30 ms of a step, what a hand lets
    // go of is 0 within 300 ms.
    static constexpr std::chrono::milliseconds patience{250};

    // NULL, as an empty guard, is the installed one.
    StickHand(std::string record_name, std::string guard_path);
    // Zeroes the inputs.
    ~StickHand();
    StickHand(const StickHand&) = delete;
    StickHand& operator=(const StickHand&) = delete;

    // ---- Any thread ----

    // Pan, tilt and roll, each held within -1 and 1. Why they can't be written, from an earlier try; empty
    // when nothing is known against it.
    std::string set(const std::array<double, 3>& inputs);
    void let_go();

  private:
    using Inputs = std::array<double, 3>;

    void run();
    Inputs wanted(TimePoint now) const;
    // Without the lock: opening takes milliseconds.
    std::string write(const Inputs& inputs);

    const std::string record_name_;
    const std::string guard_path_;
    std::mutex lock_;
    std::condition_variable changed_;
    Inputs inputs_{};
    TimePoint set_at_{};
    std::string problem_;
    bool stops_ = false;
    ArdenvueSticks* sticks_ = nullptr;  // the hand's thread alone
    std::thread thread_;
};

}  // namespace gateway
