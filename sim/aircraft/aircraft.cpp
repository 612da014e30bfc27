#include "sim/aircraft/aircraft.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace sim {
namespace {

constexpr std::uint8_t camera_address = 0x01;
constexpr std::uint8_t gimbal_set = 0x04;
constexpr std::uint8_t gimbal_address = 0x04;

bool begins_with(std::span<const std::uint8_t> payload, std::string_view bytes) {
    return payload.size() >= bytes.size() &&
           std::equal(bytes.begin(), bytes.end(), payload.begin(), [](char wanted, std::uint8_t byte) {
               return static_cast<std::uint8_t>(wanted) == byte;
           });
}

// A hump that wanders through the brightness range once in eight seconds.
std::array<std::uint8_t, 64> histogram_at(Time now) {
    const double seconds = std::chrono::duration<double>(now).count();
    const double middle = 32 + 20 * std::sin(seconds * 0.785);
    std::array<std::uint8_t, 64> bars{};
    for (std::size_t i = 0; i < bars.size(); ++i) {
        const double away = (static_cast<double>(i) - middle) / 10;
        bars[i] = static_cast<std::uint8_t>(std::lround(200 * std::exp(-away * away)));
    }
    return bars;
}

}  // namespace

const CommandRow* find_command(const Packet& packet) {
    const std::span<const CommandRow> rows = packet.set == gimbal_set ? gimbal_commands() : camera_commands();
    const auto found = std::find_if(rows.begin(), rows.end(), [&packet](const CommandRow& row) {
        return row.set == packet.set && row.id == packet.id &&
               begins_with(packet.payload, row.details.begins);
    });
    return found == rows.end() ? nullptr : &*found;
}

std::uint8_t receiver_of(std::uint8_t set) {
    return set == gimbal_set ? gimbal_address : camera_address;
}

void advance(Aircraft& aircraft, Time now) {
    AircraftState& state = aircraft.state;
    const auto seconds = [](Time time) {
        return std::chrono::duration_cast<std::chrono::seconds>(time).count();
    };
    if (state.recording) {
        const auto recorded = seconds(now - aircraft.record_start);
        state.record_seconds = static_cast<std::uint16_t>(recorded);
        state.record_left_seconds =
            aircraft.record_left_at_start -
            std::min<std::uint32_t>(aircraft.record_left_at_start, static_cast<std::uint32_t>(recorded));
    }
    // A battery lasts for about half an hour of hovering.
    const AircraftState full;
    const auto drained = std::min<std::int64_t>(seconds(now) / 20, full.battery_percent);
    state.battery_percent = static_cast<std::uint8_t>(full.battery_percent - drained);
    state.voltage = static_cast<std::uint16_t>(full.voltage - 15 * drained);
    aircraft.gimbal.advance(now);
    state.gimbal = aircraft.gimbal.pushed();
    state.histogram = histogram_at(now);
}

}  // namespace sim
