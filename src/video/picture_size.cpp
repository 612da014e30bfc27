#include "video/picture_size.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "ardenvue.h"
#include "include/h264parse.h"
#include "platform/text_file.h"

namespace {
constexpr std::array<std::uint8_t, 4> start_code{0, 0, 0, 1};
constexpr std::size_t nal_header_size = 1;
constexpr std::uint8_t nal_unit_type_mask = 0x1F;
constexpr std::uint8_t nal_unit_type_sps = 7;

struct PictureSize {
    std::int32_t width;
    std::int32_t height;
    bool operator==(const PictureSize&) const = default;
};

PictureSize last_size{};
H264Parse parser;

bool begins_with_sps(std::span<const std::uint8_t> payload) {
    return payload.size() > start_code.size() + nal_header_size &&
           std::equal(start_code.begin(), start_code.end(), payload.begin()) &&
           (payload[start_code.size()] & nal_unit_type_mask) == nal_unit_type_sps;
}

void write_number(const char* path, std::int32_t number) {
    char text[12];  // any 32-bit number
    std::snprintf(text, sizeof text, "%d", number);
    write_text_file(path, text);
}
}  // namespace

void remove_picture_size_files() {
    std::remove(ardenvue::video_width_path);
    std::remove(ardenvue::video_height_path);
}

void publish_picture_size(std::span<const std::uint8_t> payload) {
    if (!begins_with_sps(payload)) {
        return;
    }
    const std::span<const std::uint8_t> sps = payload.subspan(start_code.size() + nal_header_size);
    PictureSize size{};
    if (!parser.ParseSps(sps.data(), static_cast<std::int32_t>(sps.size()), size.width, size.height)) {
        return;
    }
    // Pictures coded in whole macroblocks without the cropping that the camera means.
    if (size.width == 1912) {
        size.width = 1920;
    }
    if (size.height == 1088) {
        size.height = 1080;
    }
    if (size == last_size) {
        return;
    }
    std::fprintf(stderr, "Live stream video resolution changed to %dx%d\n", size.width, size.height);
    last_size = size;
    write_number(ardenvue::video_width_path, size.width);
    write_number(ardenvue::video_height_path, size.height);
}
