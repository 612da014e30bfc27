#include "client/reports.h"

#include <algorithm>
#include <cstring>

#include "ardenvue.h"
#include "client/choices.h"
#include "platform/little_endian.h"

namespace client {
namespace {

constexpr Nanoseconds histogram_patience = 1'500'000'000;

// What every line holds.
constexpr std::string_view keys[] = {"camera_detected",
                                     "camera_model",
                                     "camera_mode",
                                     "sd",
                                     "shots_left",
                                     "rec_time_left",
                                     "rec_time",
                                     "voltage",
                                     "battery_level",
                                     "battery_temp",
                                     "shot_mode",
                                     "resolution",
                                     "framerate",
                                     "format",
                                     "ae",
                                     "aperture",
                                     "shutter",
                                     "shutter_set",
                                     "iso",
                                     "iso_set",
                                     "ev",
                                     "image_mode",
                                     "color_mode",
                                     "wb",
                                     "wb_temp",
                                     "ratio",
                                     "sensor",
                                     "video_std",
                                     "antiflicker",
                                     "histogram",
                                     "pl_state",
                                     "pl_id",
                                     "pl_dur",
                                     "pl_time"};

struct FocusCode {
    std::uint8_t code;
    ArdenvueFocusType type;
};

constexpr FocusCode focus_codes[] = {{0x84, ARDENVUE_FOCUS_MF},  {0xA0, ARDENVUE_FOCUS_MF},
                                     {0x85, ARDENVUE_FOCUS_AFS}, {0xA5, ARDENVUE_FOCUS_AFS},
                                     {0x86, ARDENVUE_FOCUS_AFC}, {0xA6, ARDENVUE_FOCUS_AFC}};

ArdenvueFocusType focus_type(std::uint8_t code) {
    for (const FocusCode& known : focus_codes) {
        if (known.code == code) {
            return known.type;
        }
    }
    return {};
}

std::int16_t load_signed(const std::uint8_t (&bytes)[2]) {
    return static_cast<std::int16_t>(load_le16(bytes));
}

ArdenvueGimbalFocus decode(const ardenvue::GimbalFocusRecord& record) {
    ArdenvueGimbalFocus decoded{};
    decoded.heading = load_signed(record.attitude[0]);
    decoded.tilt = load_signed(record.attitude[1]);
    decoded.roll = load_signed(record.attitude[2]);
    decoded.orientation_lock = record.orientation_lock != 0;
    decoded.recording = record.camera_flags_a >> 6 == 2;
    decoded.camera_flags[0] = record.camera_flags_a;
    decoded.camera_flags[1] = record.camera_flags_b;
    decoded.camera_flags[2] = record.camera_flags_c;
    decoded.focus_reported = record.focus_valid != 0;
    decoded.focus_type = focus_type(record.focus_mode);
    decoded.focus_mode = record.focus_mode;
    decoded.focus_aux[0] = record.focus_aux_1;
    decoded.focus_aux[1] = record.focus_aux_2;
    decoded.focus_max = load_le16(record.focus_max);
    decoded.focus_position = load_le16(record.focus_position);
    decoded.focus_x = load_le16(record.focus_point_x) / 1000.0;
    decoded.focus_y = load_le16(record.focus_point_y) / 1000.0;
    return decoded;
}

}  // namespace

bool StatusLine::parse(std::span<const std::uint8_t> datagram) {
    count_ = 0;
    if (datagram.size() < 2 || datagram.size() > text_.size() ||
        datagram.front() != ardenvue::status_line_type || datagram.back() != ',') {
        return false;
    }
    const auto text = datagram.subspan(1);
    if (!std::all_of(text.begin(), text.end(), [](std::uint8_t c) { return c >= 0x20 && c <= 0x7E; })) {
        return false;
    }
    std::copy(text.begin(), text.end(), text_.begin());
    length_ = text.size();
    const auto is_there = [this](std::string_view wanted) {
        for (std::size_t i = 0; i < count_; ++i) {
            if (key(i) == wanted) {
                return true;
            }
        }
        return false;
    };
    if (!split() || !std::all_of(std::begin(keys), std::end(keys), is_there)) {
        count_ = 0;
        return false;
    }
    return true;
}

// Takes the pairs of the text apart where they stand, "iso=400," by "iso\0400\0".
bool StatusLine::split() {
    for (std::size_t at = 0; at < length_;) {
        char* const pair = text_.data() + at;
        const std::size_t size = std::string_view{pair, length_ - at}.find(',');
        const std::size_t equals = std::string_view{pair, size}.find('=');
        if (equals == std::string_view::npos || equals == 0 || count_ == pairs_.size()) {
            return false;
        }
        pair[equals] = '\0';
        pair[size] = '\0';
        pairs_[count_++] = {static_cast<std::uint16_t>(at), static_cast<std::uint16_t>(at + equals + 1)};
        at += size + 1;
    }
    return true;
}

const char* StatusLine::value(std::string_view key_wanted) const {
    for (std::size_t i = 0; i < count_; ++i) {
        if (key(i) == key_wanted) {
            return value(i);
        }
    }
    return "";
}

bool is_status_key(std::string_view key) {
    return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

void Report::parse(std::span<const std::uint8_t> datagram) {
    kind = ARDENVUE_ANY_REPORT;
    if (line.parse(datagram)) {
        kind = ARDENVUE_STATUS_LINE;
    } else if (datagram.size() == sizeof(ardenvue::GimbalFocusRecord) &&
               datagram[0] == ardenvue::record_type && datagram[1] == ardenvue::gimbal_focus_subtype) {
        ardenvue::GimbalFocusRecord record{};
        std::memcpy(&record, datagram.data(), sizeof record);
        gimbal_focus = decode(record);
        kind = ARDENVUE_GIMBAL_FOCUS;
    } else if (datagram.size() == sizeof(ardenvue::HistogramRecord) && datagram[0] == ardenvue::record_type &&
               datagram[1] == ardenvue::histogram_subtype) {
        std::copy(datagram.begin() + 2, datagram.end(), histogram.bins);
        kind = ARDENVUE_HISTOGRAM;
    }
}

void CameraState::take(const Report& report, Nanoseconds now) {
    switch (report.kind) {
        case ARDENVUE_STATUS_LINE:
            line = report.line;
            line_time = now;
            break;
        case ARDENVUE_GIMBAL_FOCUS:
            gimbal_focus = report.gimbal_focus;
            gimbal_focus.time_ns = now;
            break;
        case ARDENVUE_HISTOGRAM:
            histogram = report.histogram;
            histogram.time_ns = now;
            break;
        case ARDENVUE_ANY_REPORT:
            break;
    }
}

Nanoseconds CameraState::newest(ArdenvueReport report) const {
    switch (report) {
        case ARDENVUE_STATUS_LINE:
            return line_time;
        case ARDENVUE_GIMBAL_FOCUS:
            return gimbal_focus.time_ns;
        case ARDENVUE_HISTOGRAM:
            return histogram.time_ns;
        case ARDENVUE_ANY_REPORT:
            break;
    }
    return std::max({line_time, gimbal_focus.time_ns, histogram.time_ns});
}

Seen CameraState::since(Nanoseconds time) const {
    return {line_time > time ? &line : nullptr, gimbal_focus.time_ns > time ? &gimbal_focus : nullptr};
}

bool CameraState::has_histogram(Nanoseconds now) const {
    const bool ended = line_time > histogram.time_ns && std::strcmp(line.value("histogram"), "0") == 0;
    return histogram.time_ns != 0 && now - histogram.time_ns <= histogram_patience && !ended;
}

}  // namespace client
