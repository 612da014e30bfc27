// What arrives on the status port. Each report that is accepted is put together again from what the library
// gives of it and must be the datagram that came; what looks like one of ours must be accepted; and what is
// not accepted leaves what there was.
#include <cmath>
#include <cstring>
#include <memory>

#include "ardenvue/client.h"
#include "fuzz.h"

namespace {

using Link = std::unique_ptr<ArdenvueLink, decltype(&ardenvue_link_close)>;

std::string put_together(const ArdenvueLink* link) {
    std::string text = "\x07";
    const char* key = nullptr;
    const char* value = nullptr;
    for (std::size_t i = 0; ardenvue_link_pair(link, i, &key, &value) == 0; ++i) {
        text += std::string{key} + "=" + value + ",";
    }
    return text;
}

std::string low_high(int number) {
    return {static_cast<char>(number), static_cast<char>(number >> 8)};
}

void check_line(const ArdenvueLink* link, const std::string& datagram) {
    fuzz::require(put_together(link) == datagram, "status line");
    fuzz::require(std::all_of(datagram.begin() + 1, datagram.end(),
                              [](unsigned char c) { return c < 0x7F && c >= 0x20; }),
                  "a character that is not for a terminal");
    for (const char* key : {"camera_detected", "iso", "wb_temp", "pl_time"}) {
        fuzz::require(("," + datagram.substr(1)).find("," + std::string{key} + "=") != std::string::npos,
                      "a key is missing");
    }
    ArdenvueStatus status;
    fuzz::require(ardenvue_link_status(link, &status) == 0, "values");
    fuzz::require(std::strncmp(status.camera_model, ardenvue_link_text(link, "camera_model"),
                               sizeof status.camera_model - 1) == 0,
                  "model");
    fuzz::require(status.recording_seconds >= -1 && status.iso_set >= -2'147'483'647 - 1 &&
                      !std::isinf(status.shutter) && !std::isinf(status.aperture),
                  "values out of their ranges");
}

void check_record(const ArdenvueLink* link, const std::string& datagram) {
    ArdenvueGimbalFocus record;
    fuzz::require(ardenvue_link_gimbal_focus(link, &record) == 0, "record");
    const std::string angles = low_high(record.heading) + low_high(record.tilt) + low_high(record.roll);
    fuzz::require(datagram.compare(3, 6, angles) == 0, "attitude");
    const std::string focus = low_high(record.focus_max) + low_high(record.focus_position) +
                              low_high(static_cast<int>(std::lround(record.focus_x * 1000))) +
                              low_high(static_cast<int>(std::lround(record.focus_y * 1000)));
    fuzz::require(datagram.compare(15, 8, focus) == 0, "focus");
    fuzz::require(record.recording == ((datagram[9] & 0xC0) == 0x80), "recording");
    fuzz::require(
        record.orientation_lock == (datagram[2] != 0) && record.focus_reported == (datagram[12] != 0),
        "flags");
}

void take(ArdenvueLink* link, const std::string& datagram) {
    const std::string line_before = put_together(link);
    const auto is_record = [&](char subtype, std::size_t length) {
        return datagram.size() == length && datagram[0] == 6 && datagram[1] == subtype;
    };
    const int got = ardenvue_link_take(link, datagram.data(), datagram.size(), nullptr);
    fuzz::require((got == ARDENVUE_GIMBAL_FOCUS) == is_record(0, 28), "gimbal and focus record");
    fuzz::require((got == ARDENVUE_HISTOGRAM) == is_record(1, 66), "histogram record");
    ArdenvueHistogram histogram;
    if (got == ARDENVUE_STATUS_LINE) {
        check_line(link, datagram);
        return;
    }
    fuzz::require(put_together(link) == line_before, "a line that was disturbed");
    if (got == ARDENVUE_GIMBAL_FOCUS) {
        check_record(link, datagram);
    } else if (got == ARDENVUE_HISTOGRAM && ardenvue_link_histogram(link, &histogram) == 0) {
        fuzz::require(std::memcmp(datagram.data() + 2, histogram.bins, sizeof histogram.bins) == 0, "bins");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ArdenvueLink* opened = nullptr;
    fuzz::require(ardenvue_link_open_unbound(&opened, nullptr, nullptr, 0) == 0, "no link");
    const Link link{opened, ardenvue_link_close};
    const std::string all(data, data + size);
    take(link.get(), all);
    // What was found spoils what there is already: from the middle on it is a datagram of its own.
    take(link.get(), all.substr(all.size() / 2));
    take(link.get(), all);
    return 0;
}
