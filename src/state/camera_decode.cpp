#include "state/camera_decode.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "link/packet.h"
#include "state/pushes.h"
#include "state/telemetry.h"

namespace {
constexpr std::size_t shortest_packet = 10;
constexpr std::size_t type_offset = 8;
constexpr std::size_t set_offset = 9;
constexpr std::size_t id_offset = 10;

// A push is known by its length byte and, where they are not `any`, its command type, set and id.
constexpr int any = -1;

struct PushKind {
    std::uint8_t length;
    int type;
    int set;
    int id;
    void (*decode)(PushPayload payload, TelemetryState& state);

    bool matches(std::span<const std::uint8_t> packet) const {
        return packet[1] == length && packet.size() >= length &&
               (type == any || packet[type_offset] == type) && (set == any || packet[set_offset] == set) &&
               (id == any || packet[id_offset] == id);
    }
};

constexpr PushKind push_kinds[] = {
    {31, 0x00, 0x04, 0x05, decode_gimbal_attitude},
    {44, 0x00, 0x0D, 0x02, decode_battery},
    {48, any, any, any, decode_power},
    {53, 0x00, 0x02, 0x80, decode_camera_status},
    {54, 0x00, 0x02, any, decode_focus},
    {58, 0x00, 0x02, any, decode_focus},
    {77, any, any, any, decode_histogram},
    {106, 0x00, 0x02, 0x81, decode_camera_parameters},
    {107, 0x00, 0x02, 0x81, decode_camera_parameters},
};
}  // namespace

void decode_camera_packet(std::span<const std::uint8_t> packet) {
    if (packet.size() < shortest_packet || packet[0] != link_packet::start_byte) {
        return;
    }
    open_shared_attitude();
    const auto* kind = std::find_if(std::begin(push_kinds), std::end(push_kinds),
                                    [packet](const PushKind& row) { return row.matches(packet); });
    if (kind != std::end(push_kinds)) {
        kind->decode(packet.subspan(link_packet::header_size), get_telemetry_state());
    }
}
