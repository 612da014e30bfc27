#include "state/gimbal_motion.h"

#include "link/packet_template.h"
#include "platform/little_endian.h"
#include "platform/saturate.h"

namespace {

constexpr auto relative_motion =
    make_link_packet<20>({0x02, 0x04, 0x40, 0x04, 0x0C}, {0, 0, 0, 0, 0, 0, 0x90});
constexpr auto absolute_position =
    make_link_packet<23>({0x02, 0x04, 0x40, 0x04, 0x0A}, {0, 0, 0, 0, 0, 0, 0x64, 0x00, 0xE0, 0x04});
static_assert(relative_motion[3] == 0x6D && absolute_position[3] == 0x38);

int scaled(double input, double scale) {
    return saturating_cast<std::int32_t>(input * scale);
}

template <std::size_t length>
void send_values(PacketRun& run, std::array<std::uint8_t, length> packet, int value_0, int value_1,
                 int value_2) {
    std::uint8_t* payload = &packet[link_packet::header_size];
    store_le16(payload, static_cast<std::uint16_t>(value_0));
    store_le16(payload + 2, static_cast<std::uint16_t>(value_2));
    store_le16(payload + 4, static_cast<std::uint16_t>(value_1));
    run.send(packet);
}

}  // namespace

void send_gimbal_relative(PacketRun& run, double input_0, double input_1, double input_2) {
    send_gimbal_relative(run, scaled(input_0, 1000.0), scaled(input_1, 1000.0), scaled(input_2, 1000.0));
}

void send_gimbal_relative(PacketRun& run, int value_0, int value_1, int value_2) {
    send_values(run, relative_motion, value_0, value_1, value_2);
}

void send_gimbal_absolute(PacketRun& run, double input_0, double input_1, double input_2) {
    send_values(run, absolute_position, scaled(input_0, input_0 < 0 ? -600.0 : -2400.0),
                scaled(input_1, input_1 < 0 ? 1500.0 : 900.0), scaled(input_2, 450.0));
}
