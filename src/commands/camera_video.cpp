#include "commands/camera_video.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "commands/packets.h"
#include "io/packet_run.h"
#include "state/camera_codes.h"

namespace {

using camera_codes::Code;
using camera_codes::CodeText;
using camera_codes::find;
using camera_codes::FrameRate;
using camera_codes::TwoTextCode;
using camera_codes::VideoSize;

constexpr Code unknown = 0;

struct TransmissionMode {
    const char* text;
    Code code_a;
    Code code_b;
};

constexpr TransmissionMode transmission_modes[] = {{"Regular", 6, 1}, {"HD", 7, 2}, {"Smooth", 5, 3}};
constexpr CodeText switch_positions[] = {{0, "0"}, {1, "1"}};

Code size_code(int width, int height) {
    for (const VideoSize& size : camera_codes::video_sizes) {
        if (size.width == width && size.height == height) {
            return size.code;
        }
    }
    return unknown;
}

Code rate_code(int frame_rate) {
    const FrameRate* row = find(camera_codes::frame_rates, &FrameRate::frames_per_second, frame_rate);
    return row != nullptr ? row->code : unknown;
}

}  // namespace

void camera_set_video_resolution(int width, int height, int frame_rate) {
    std::fprintf(stderr, "Camera set video resolution %dx%d@%d\n", width, height, frame_rate);
    const Code size = size_code(width, height);
    const Code rate = rate_code(frame_rate);
    PacketRun run;
    run.send(packets::resolution_1, {size, rate});
    run.send(packets::resolution_2, {size, rate});
}

void camera_set_transmission_mode(const char* mode) {
    std::fprintf(stderr, "Set image transmission mode to %s\n", mode);
    const TransmissionMode* row = find(transmission_modes, &TransmissionMode::text, mode);
    PacketRun run;
    run.send(packets::transmission, {0x01, row != nullptr ? row->code_a : unknown});
    run.send(packets::transmission, {0x04, 0x00, 0x00, row != nullptr ? row->code_b : unknown});
}

void camera_set_aspect_ratio(const char* ratio) {
    std::fprintf(stderr, "Camera set image aspect ratio %s\n", ratio);
    if (const CodeText* row = find(camera_codes::aspect_ratios, &CodeText::text, ratio)) {
        PacketRun{}.send(packets::aspect_ratio, {0x00, row->code});
    }
}

void camera_set_shot_mode(const char* format) {
    std::fprintf(stderr, "Camera set shot mode %s\n", format);
    if (const TwoTextCode* row = find(camera_codes::photo_formats, &TwoTextCode::commanded, format)) {
        PacketRun{}.send(packets::photo_format, {row->code});
    }
}

void camera_set_antiflicker(const char* frequency) {
    std::fprintf(stderr, "Camera set anti-flicker %s\n", frequency);
    const TwoTextCode* row = find(camera_codes::antiflicker_modes, &TwoTextCode::commanded, frequency);
    PacketRun{}.send(packets::antiflicker, {row != nullptr ? row->code : unknown});
}

void camera_set_video_standard(const char* standard) {
    std::fprintf(stderr, "Camera set video standard %s\n", standard);
    if (const CodeText* row = find(camera_codes::video_standards, &CodeText::text, standard)) {
        PacketRun{}.send(packets::video_standard, {row->code});
    }
}

void camera_reset() {
    PacketRun{}.send(packets::reset);
}

void camera_format(const char* card) {
    if (std::string_view{card} == "sd") {
        std::fputs("Format microSD card\n", stderr);
        PacketRun{}.send(packets::format_card);
    }
}

void camera_set_histogram(const char* on) {
    if (const CodeText* row = find(switch_positions, &CodeText::text, on)) {
        PacketRun{}.send(packets::histogram, {row->code});
    }
}
