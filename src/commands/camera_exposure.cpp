#include "commands/camera_exposure.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

#include "commands/packets.h"
#include "commands/shutter_speeds.h"
#include "commands/text_number.h"
#include "io/packet_run.h"
#include "platform/little_endian.h"
#include "platform/saturate.h"
#include "state/camera_codes.h"

namespace {

using camera_codes::Code;
using camera_codes::CodeText;
using camera_codes::ExposureStep;
using camera_codes::find;
using camera_codes::WhiteBalance;

constexpr Code unknown = 0;
constexpr std::size_t payload = link_packet::header_size;

// The row of an ISO number, or null; the table's texts are the numbers in decimal.
const CodeText* find_iso(int iso) {
    char text[std::numeric_limits<int>::digits10 + 3];
    std::snprintf(text, sizeof text, "%d", iso);
    return find(camera_codes::iso_values, &CodeText::text, text);
}

// Second byte of the custom white balance: hundreds of kelvin. None without a temperature, or with one that
// is too low.
std::optional<Code> temperature_code(const char* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    std::fprintf(stderr, "Camera set WB temperature %s\n", text);
    const int kelvin = to_int(text);
    if (kelvin <= 1900) {
        return std::nullopt;
    }
    return static_cast<Code>((kelvin - 2000) / 100 + 20);
}

}  // namespace

void camera_set_video_mode(const char* program) {
    std::fprintf(stderr, "Camera set video mode %s\n", program);
    if (const CodeText* row = find(camera_codes::exposure_programs, &CodeText::text, program)) {
        PacketRun{}.send(packets::exposure_program, {row->code});
    }
}

void camera_set_shutter(const char* text) {
    std::fprintf(stderr, "Camera set shutter %s\n", text);
    const ShutterCode code = find_shutter_code(text);
    auto packet = packets::shutter;
    store_le16(&packet[payload + 1], code.value);
    packet[payload + 3] = code.decimal;
    PacketRun{}.send(packet);
}

void camera_set_aperture(const char* text) {
    const float f_number = to_float(text);
    std::fprintf(stderr, "Camera set aperture %1.2f\n", static_cast<double>(f_number));
    const auto hundredths = saturating_cast<std::int32_t>(static_cast<double>(f_number * 100.0F));
    auto packet = packets::aperture;
    store_le16(&packet[payload], static_cast<std::uint16_t>(hundredths));
    PacketRun{}.send(packet);
}

void camera_set_iso(const char* text) {
    const int iso = to_int(text);
    std::fprintf(stderr, "Camera set iso %d\n", iso);
    const CodeText* row = find_iso(iso);
    PacketRun{}.send(packets::iso, {row != nullptr ? row->code : unknown});
}

void camera_set_ev(const char* text) {
    const double ev = std::strtod(text, nullptr);
    std::fprintf(stderr, "Camera set EV %1.1f\n", ev);
    if (const ExposureStep* step = find(camera_codes::exposure_steps, &ExposureStep::ev, ev)) {
        PacketRun{}.send(packets::exposure_compensation, {step->code});
    }
}

void camera_set_white_balance(const char* setting, const char* temperature) {
    std::fprintf(stderr, "Camera set WB %s\n", setting);
    const WhiteBalance* row = find(camera_codes::white_balances, &WhiteBalance::text, setting);
    if (row == nullptr) {
        return;
    }
    const std::optional<Code> second = row->second_byte ? row->second_byte : temperature_code(temperature);
    if (second) {
        PacketRun{}.send(packets::white_balance, {row->commanded, *second});
    }
}

void camera_set_color(const char* profile) {
    std::fprintf(stderr, "Set color %s\n", profile);
    const CodeText* row = find(camera_codes::color_profiles, &CodeText::text, profile);
    PacketRun{}.send(packets::color, {row != nullptr ? row->code : unknown});
}
