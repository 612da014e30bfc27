#include "sim/aircraft/pushes.h"

#include <algorithm>
#include <bit>

#include "platform/little_endian.h"

namespace sim {
namespace {

constexpr std::uint8_t app_address = 0x02;
constexpr std::uint8_t camera_address = 0x01;
constexpr std::uint8_t gimbal_address = 0x04;
constexpr std::uint8_t battery_address = 0x0B;
constexpr std::uint8_t push_type = 0x00;
constexpr std::uint8_t camera_set = 0x02;
constexpr std::uint8_t gimbal_set = 0x04;
constexpr std::uint8_t battery_set = 0x0D;

// A push of the given whole length, its payload zero.
Packet push(std::uint8_t sender, std::uint8_t set, std::uint8_t id, std::size_t length) {
    return {sender, app_address, 0, push_type, set, id, Bytes(length - packet_overhead)};
}

void put24(std::uint8_t* bytes, std::uint32_t value) {
    store_le16(bytes, static_cast<std::uint16_t>(value));
    bytes[2] = static_cast<std::uint8_t>(value >> 16);
}

void put_float(std::uint8_t* bytes, float value) {
    store_le32(bytes, std::bit_cast<std::uint32_t>(value));
}

}  // namespace

Packet attitude_push(const AircraftState& state) {
    Packet packet = push(gimbal_address, gimbal_set, 0x05, 31);
    for (std::size_t axis = 0; axis < state.gimbal.size(); ++axis) {
        store_le16(&packet.payload[2 * axis], static_cast<std::uint16_t>(state.gimbal[axis]));
    }
    return packet;
}

Packet battery_push(const AircraftState& state) {
    Packet packet = push(battery_address, battery_set, 0x02, 44);
    store_le16(&packet.payload[17], state.battery_temperature);
    packet.payload[20] = state.battery_percent;
    return packet;
}

Packet power_push(const AircraftState& state) {
    Packet packet = push(battery_address, battery_set, 0x01, 48);
    packet.payload[0] = state.battery_percent;
    store_le16(&packet.payload[1], state.voltage);
    return packet;
}

Packet camera_status_push(const AircraftState& state) {
    Packet packet = push(camera_address, camera_set, 0x80, 53);
    std::uint8_t* const payload = packet.payload.data();
    payload[0] = state.recording ? 2 << 6 : 0;
    payload[4] = state.camera_mode;
    store_le32(payload + 9, state.sd_capacity_mb);
    store_le32(payload + 13, state.shots_left);
    store_le32(payload + 17, state.record_left_seconds);
    store_le16(payload + 29, state.record_seconds);
    payload[33] = state.device_id;
    return packet;
}

Packet focus_push(const AircraftState& state, PushForm form) {
    Packet packet = push(camera_address, camera_set, 0x31, form == PushForm::shorter ? 54 : 58);
    std::uint8_t* const payload = packet.payload.data();
    payload[0] = state.focus_mode;
    store_le16(payload + 1, state.focus_max);
    store_le16(payload + 3, state.focus_position);
    put_float(payload + 13, state.focus_x);
    put_float(payload + 17, state.focus_y);
    return packet;
}

Packet parameter_push(const AircraftState& state, PushForm form) {
    Packet packet = push(camera_address, camera_set, 0x81, form == PushForm::shorter ? 106 : 107);
    std::uint8_t* const payload = packet.payload.data();
    put24(payload + 2, state.shutter_set);
    payload[5] = state.iso_code;
    payload[6] = state.ev_code;
    payload[10] = state.aspect;
    payload[12] = state.photo_format;
    payload[13] = state.resolution;
    payload[14] = state.frame_rate;
    payload[20] = state.exposure_program;
    payload[23] = state.white_balance;
    payload[24] = state.wb_temperature;
    payload[31] = state.colour;
    payload[32] = state.antiflicker;
    store_le16(payload + 38, state.aperture);
    put24(payload + 40, state.shutter);
    store_le16(payload + 43, state.iso);
    payload[55] = state.standard;
    return packet;
}

Packet histogram_push(const AircraftState& state) {
    Packet packet = push(camera_address, camera_set, 0x61, 77);
    std::copy(state.histogram.begin(), state.histogram.end(), packet.payload.begin());
    return packet;
}

const char* push_name(const Packet& packet) {
    struct Name {
        std::uint8_t set;
        std::uint8_t id;
        const char* name;
    };
    constexpr Name names[] = {
        {gimbal_set, 0x05, "gimbal attitude"}, {battery_set, 0x02, "battery"},
        {battery_set, 0x01, "power"},          {camera_set, 0x80, "camera status"},
        {camera_set, 0x31, "focus"},           {camera_set, 0x81, "camera parameters"},
        {camera_set, 0x61, "histogram"},
    };
    const auto found = std::find_if(std::begin(names), std::end(names), [&packet](const Name& name) {
        return name.set == packet.set && name.id == packet.id;
    });
    return found == std::end(names) ? "packet" : found->name;
}

}  // namespace sim
