#include "ctl/reports.h"

#include <algorithm>
#include <cstring>

#include "ardenvue.h"
#include "platform/little_endian.h"

namespace ctl {
namespace {

constexpr StatusKey keys[] = {
    {"camera_detected", true},
    {"camera_model"},
    {"camera_mode"},
    {"sd"},
    {"shots_left", true},
    {"rec_time_left"},
    {"rec_time"},
    {"voltage", true},
    {"battery_level", true},
    {"battery_temp", true},
    {"shot_mode"},
    {"resolution"},
    {"framerate"},
    {"format"},
    {"ae", true},
    {"aperture"},
    {"shutter"},
    {"shutter_set"},
    {"iso", true},
    {"iso_set"},
    {"ev"},
    {"image_mode"},
    {"color_mode"},
    {"wb"},
    {"wb_temp", true},
    {"ratio"},
    {"sensor", true},
    {"video_std"},
    {"antiflicker"},
    {"histogram", true},
    {"pl_state"},
    {"pl_id", true},
    {"pl_dur"},
    {"pl_time"},
};

struct FocusMode {
    std::uint8_t code;
    std::string_view text;
};

constexpr FocusMode focus_modes[] = {{0x84, "MF"},  {0xA0, "MF"},  {0x85, "AFS"},
                                     {0xA5, "AFS"}, {0x86, "AFC"}, {0xA6, "AFC"}};

std::optional<StatusLine> parse_status_line(std::string_view text) {
    const auto printable = [](char c) { return c >= 0x20 && c <= 0x7E; };
    if (!text.ends_with(',') || !std::all_of(text.begin(), text.end(), printable)) {
        return std::nullopt;
    }
    StatusLine line;
    while (!text.empty()) {
        const std::string_view pair = text.substr(0, text.find(','));
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos || equals == 0) {
            return std::nullopt;
        }
        line.pairs.emplace_back(pair.substr(0, equals), pair.substr(equals + 1));
        text.remove_prefix(pair.size() + 1);
    }
    const auto has = [&](const StatusKey& key) {
        return std::any_of(line.pairs.begin(), line.pairs.end(),
                           [&](const auto& pair) { return pair.first == key.name; });
    };
    return std::all_of(std::begin(keys), std::end(keys), has) ? std::optional{std::move(line)} : std::nullopt;
}

GimbalFocus decode(const ardenvue::GimbalFocusRecord& record) {
    GimbalFocus decoded{};
    decoded.orientation_lock = record.orientation_lock != 0;
    for (std::size_t i = 0; i < decoded.attitude.size(); ++i) {
        decoded.attitude[i] = static_cast<std::int16_t>(load_le16(record.attitude[i]));
    }
    decoded.recording = record.camera_flags_a >> 6 == 2;
    decoded.focus_valid = record.focus_valid != 0;
    decoded.focus_mode = record.focus_mode;
    decoded.focus_max = load_le16(record.focus_max);
    decoded.focus_position = load_le16(record.focus_position);
    decoded.focus_point_x = load_le16(record.focus_point_x) / 1000.0;
    decoded.focus_point_y = load_le16(record.focus_point_y) / 1000.0;
    return decoded;
}

}  // namespace

std::string_view StatusLine::value(std::string_view key) const {
    for (const auto& [name, text] : pairs) {
        if (name == key) {
            return text;
        }
    }
    return {};
}

std::string_view GimbalFocus::focus_mode_text() const {
    for (const auto& [code, text] : focus_modes) {
        if (code == focus_mode) {
            return text;
        }
    }
    return {};
}

std::span<const StatusKey> status_keys() {
    return keys;
}

Report parse_report(std::span<const std::uint8_t> datagram) {
    if (datagram.size() < 2) {
        return {};
    }
    if (datagram[0] == ardenvue::status_line_type) {
        const auto* text = reinterpret_cast<const char*>(datagram.data());
        if (auto line = parse_status_line({text + 1, datagram.size() - 1})) {
            return *std::move(line);
        }
        return {};
    }
    if (datagram[0] != ardenvue::record_type) {
        return {};
    }
    if (datagram[1] == ardenvue::gimbal_focus_subtype &&
        datagram.size() == sizeof(ardenvue::GimbalFocusRecord)) {
        ardenvue::GimbalFocusRecord record{};
        std::memcpy(&record, datagram.data(), sizeof record);
        return decode(record);
    }
    if (datagram[1] == ardenvue::histogram_subtype && datagram.size() == sizeof(ardenvue::HistogramRecord)) {
        Histogram histogram{};
        std::copy(datagram.begin() + 2, datagram.end(), histogram.bins.begin());
        return histogram;
    }
    return {};
}

void CameraView::take(Report&& report, Clock::time_point time) {
    if (auto* new_line = std::get_if<StatusLine>(&report)) {
        line = std::move(*new_line);
        line_time = time;
    } else if (const auto* record = std::get_if<GimbalFocus>(&report)) {
        gimbal_focus = *record;
        gimbal_focus_time = time;
    } else if (const auto* new_histogram = std::get_if<Histogram>(&report)) {
        histogram = *new_histogram;
        histogram_time = time;
    }
}

CameraView CameraView::since(Clock::time_point time) const {
    CameraView view = *this;
    if (line_time <= time) {
        view.line.reset();
    }
    if (gimbal_focus_time <= time) {
        view.gimbal_focus.reset();
    }
    if (histogram_time <= time) {
        view.histogram.reset();
    }
    return view;
}

}  // namespace ctl
