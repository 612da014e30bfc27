#include "sim/aircraft/gimbal.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double fast_degrees_per_second = 120;
constexpr double slow_degrees_per_second = 40;
constexpr double relative_units_per_degree = 500;
constexpr double absolute_units_per_degree = 10;
constexpr double towards_pilot = -180;

}  // namespace

void Gimbal::go_to(Degrees wanted) {
    for (std::size_t axis = 0; axis < gimbal_axes; ++axis) {
        wanted[axis] = std::clamp(wanted[axis], gimbal_range[axis].lowest, gimbal_range[axis].highest);
    }
    if (tilt_locked_) {
        wanted[1] = 0;
    }
    way_.assign(1, wanted);
}

Degrees Gimbal::level() const {
    return {heading_, 0, mode_ == Mode::first_person ? aircraft_roll : 0};
}

void Gimbal::turn(const GimbalValues& values) {
    if (values == GimbalValues{}) {
        return;
    }
    Degrees wanted = target();
    for (std::size_t axis = 0; axis < gimbal_axes; ++axis) {
        wanted[axis] += values[axis] / relative_units_per_degree;
    }
    go_to(wanted);
}

void Gimbal::point(const GimbalValues& values) {
    Degrees wanted{};
    for (std::size_t axis = 0; axis < gimbal_axes; ++axis) {
        wanted[axis] = values[axis] / absolute_units_per_degree;
    }
    go_to(wanted);
}

void Gimbal::centre() {
    go_to(level());
}

void Gimbal::next_position() {
    heading_ = heading_ == 0 ? towards_pilot : 0;
    go_to(level());
}

void Gimbal::set_mode(Mode mode) {
    mode_ = mode;
    go_to({target()[0], target()[1], level()[2]});
}

void Gimbal::set_tilt_locked(bool locked) {
    tilt_locked_ = locked;
    go_to(target());
}

void Gimbal::calibrate() {
    const Degrees home = level();
    way_.clear();
    for (const std::size_t axis : {std::size_t{1}, std::size_t{2}}) {
        for (const double end : {gimbal_range[axis].lowest, gimbal_range[axis].highest}) {
            Degrees stop = home;
            stop[axis] = end;
            way_.push_back(stop);
        }
    }
    way_.push_back(home);
}

void Gimbal::advance(Time now) {
    const double seconds = std::chrono::duration<double>(now - last_).count();
    last_ = now;
    double reach = seconds * (slow_ ? slow_degrees_per_second : fast_degrees_per_second);
    while (!way_.empty() && reach > 0) {
        double farthest = 0;
        for (std::size_t axis = 0; axis < gimbal_axes; ++axis) {
            const double distance = way_.front()[axis] - attitude_[axis];
            attitude_[axis] += std::clamp(distance, -reach, reach);
            farthest = std::max(farthest, std::abs(distance));
        }
        if (farthest <= reach) {
            attitude_ = way_.front();
            way_.pop_front();
        }
        reach -= farthest;
    }
}

GimbalValues Gimbal::pushed() const {
    const auto whole = [](double degrees) { return static_cast<std::int16_t>(std::lround(degrees)); };
    return {whole(attitude_[1]), whole(-attitude_[2]), whole(attitude_[0])};
}

}  // namespace sim
