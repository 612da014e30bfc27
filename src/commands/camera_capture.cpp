#include "commands/camera_capture.h"

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "commands/packets.h"
#include "io/packet_run.h"
#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "platform/saturate.h"
#include "state/camera_codes.h"
#include "state/telemetry.h"

namespace {

using camera_codes::CodeText;
using camera_codes::find;

constexpr CodeText camera_modes[] = {{0, "photo"}, {1, "video"}};
constexpr CodeText focus_types[] = {{0, "mf"}, {1, "afs"}, {2, "afc"}};

constexpr std::size_t payload = link_packet::header_size;

}  // namespace

void camera_record(int flag) {
    std::fputs(flag != 0 ? "Record start\n" : "Record stop\n", stderr);
    PacketRun{}.send(packets::record, {static_cast<std::uint8_t>(flag != 0 ? 1 : 0)});
}

void camera_shot() {
    std::fputs("Camera shot\n", stderr);
    PacketRun{}.send(packets::shot);
}

void camera_set_mode(const char* mode) {
    if (const CodeText* row = find(camera_modes, &CodeText::text, mode)) {
        std::fprintf(stderr, "Camera set mode %s\n", mode);
        PacketRun{}.send(packets::camera_mode, {row->code});
    }
}

void camera_set_focus_type(const char* type) {
    std::fprintf(stderr, "Camera set focus type %s\n", type);
    const CodeText* row = find(focus_types, &CodeText::text, type);
    if (row == nullptr) {
        return;
    }
    PacketRun run;
    run.send(packets::focus_type, {row->code});
    if (std::string_view{type} == "afc") {
        run.send(packets::continuous_focus);
    }
}

void camera_set_focus_point(float x, float y) {
    std::fprintf(stderr, "Camera set focus point %f,%f\n", static_cast<double>(x), static_cast<double>(y));
    auto packet = packets::focus_point;
    store_le32(&packet[payload], std::bit_cast<std::uint32_t>(x));
    store_le32(&packet[payload + 4], std::bit_cast<std::uint32_t>(y));
    PacketRun{}.send(packet);
}

void camera_set_manual_focus(int percentage) {
    const float share = static_cast<float>(percentage) * 0.01F;
    const float scaled = static_cast<float>(load_relaxed(get_telemetry_state().focus_max)) * share;
    const auto position =
        static_cast<std::uint16_t>(saturating_cast<std::uint32_t>(static_cast<double>(scaled)));
    std::fprintf(stderr, "Set manual focus %d%% (%d)\n", percentage, position);
    auto packet = packets::manual_focus;
    store_le16(&packet[payload], position);
    PacketRun{}.send(packet);
}
