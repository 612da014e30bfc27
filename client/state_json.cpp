// The function of ardenvue/json.h.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <iterator>
#include <span>
#include <string_view>

#include "ardenvue/json.h"
#include "client/choices.h"
#include "client/link.h"
#include "client/monotonic.h"

namespace {

using client::Choice;
using client::Nanoseconds;

// Writes as much as there is room for, and counts the rest.
class Json {
  public:
    Json(char* text, std::size_t size) : text_{text}, size_{size} {}

    // The name of a member, with a comma where one is due.
    Json& operator[](std::string_view name) {
        separate();
        quote(name);
        put(":");
        is_first_ = true;
        return *this;
    }

    void open(char bracket) {
        separate();
        put({&bracket, 1});
        is_first_ = true;
    }
    void close(char bracket) {
        put({&bracket, 1});
        is_first_ = false;
    }

    void plain(std::string_view value) {
        separate();
        put(value);
    }
    void null() { plain("null"); }
    void boolean(bool value) { plain(value ? "true" : "false"); }
    void text(std::string_view value) {
        separate();
        quote(value);
    }
    void whole(std::int64_t value) { convert(value); }
    // -1 says that a count is not known.
    void count(std::int32_t value) { value == -1 ? null() : whole(value); }
    void number(double value) { std::isnan(value) ? null() : convert(value); }
    // An age or a time; what an application calls a frame's time may be ahead of the clock.
    void seconds(Nanoseconds value) {
        const Nanoseconds held = std::max<Nanoseconds>(value, 0);
        convert(static_cast<double>(held) / 1e9, std::chars_format::fixed, 3);
    }
    // The command's word, or null for the number of none.
    void word(std::span<const Choice> choices, int value) {
        const auto index = static_cast<std::size_t>(value) - 1;
        index < choices.size() ? text(choices[index].word) : null();
    }

    // The length of it all, which gets its NUL.
    int finish() {
        if (size_ > 0) {
            text_[std::min(length_, size_ - 1)] = '\0';
        }
        return static_cast<int>(length_);
    }

  private:
    void separate() {
        if (!is_first_) {
            put(",");
        }
        is_first_ = false;
    }

    void put(std::string_view piece) {
        for (const char c : piece) {
            if (length_ + 1 < size_) {
                text_[length_] = c;
            }
            ++length_;
        }
    }

    // A status line holds printable ASCII only.
    void quote(std::string_view piece) {
        put("\"");
        for (const char& c : piece) {
            put(c == '"' || c == '\\' ? "\\" : "");
            put({&c, 1});
        }
        put("\"");
    }

    template <typename... Number>
    void convert(Number... number) {
        char digits[64];
        plain({digits, std::to_chars(std::begin(digits), std::end(digits), number...).ptr});
    }

    char* text_;
    std::size_t size_;
    std::size_t length_ = 0;
    bool is_first_ = true;
};

void write_time(Json& json) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char text[40] = "";
    const std::size_t size = std::strftime(text, sizeof text, "%FT%T", &parts);
    const auto milliseconds = static_cast<int>(now.tv_nsec / 1'000'000);
    const char rest[] = {'.', static_cast<char>('0' + milliseconds / 100),
                         static_cast<char>('0' + milliseconds / 10 % 10),
                         static_cast<char>('0' + milliseconds % 10), 'Z'};
    std::copy(std::begin(rest), std::end(rest), text + size);
    json["time"].text({text, size + std::size(rest)});
}

void write_link(Json& json, ArdenvueLink& link, Nanoseconds now) {
    static constexpr std::string_view states[] = {"down", "silent", "live"};
    json["link"].open('{');
    json["state"].text(states[ardenvue_link_state(&link)]);
    const std::string_view service = ardenvue_link_service(&link);
    service.empty() ? json["service"].null() : json["service"].text(service);
    json["restarts"].whole(static_cast<std::int64_t>(link.totals.restarts));
    const Nanoseconds newest = link.frames.newest();
    newest == 0 ? json["frame_age"].null() : json["frame_age"].seconds(now - newest);
    json.close('}');
}

void write_camera(Json& json, const client::CameraState& state, Nanoseconds now) {
    const ArdenvueStatus status = client::status_values(state.line, state.line_time);
    json["camera"].open('{');
    json["age"].seconds(now - status.time_ns);
    json["model"].text(status.camera_model);
    json["detected"].boolean(status.camera_detected);
    json["ae"].boolean(status.ae);
    json["mode"].word(client::all_camera_modes, status.camera_mode);
    json["card_gigabytes"].number(status.card_gigabytes);
    json["shots_left"].count(status.shots_left);
    json["recording_seconds_left"].count(status.recording_seconds_left);
    json["recording_seconds"].count(status.recording_seconds);
    json["voltage"].count(status.voltage);
    json["battery_percent"].count(status.battery_percent);
    json["battery_temperature"].number(status.battery_temperature);
    json["photo_format"].word(client::photo_formats, status.photo_format);
    json["photo_ratio"].word(client::aspects, status.photo_ratio);
    json["video_width"].count(status.video_width);
    json["video_height"].count(status.video_height);
    json["video_rate"].count(status.video_rate);
    json["video_standard"].word(client::standards, status.video_standard);
    json["aperture"].number(status.aperture);
    json["shutter"].number(status.shutter);
    json["shutter_set"].number(status.shutter_set);
    json["iso"].count(status.iso);
    json["iso_set"].count(status.iso_set);
    json["ev"].number(status.ev);
    json["exposure_program"].word(client::programs, status.exposure_program);
    json["color"].word(client::colors, status.color);
    json["white_balance"].word(client::all_white_balances, status.white_balance);
    json["white_balance_kelvin"].count(status.white_balance_kelvin);
    json["antiflicker"].word(client::antiflicker_modes, status.antiflicker);
    json["sensor"].count(status.sensor);
    json["playback_id"].count(status.playback_id);
    json["histogram"].boolean(status.histogram);
    json.close('}');
}

void write_gimbal(Json& json, const ArdenvueGimbalFocus& record, Nanoseconds now) {
    json["gimbal"].open('{');
    json["age"].seconds(now - record.time_ns);
    json["heading"].whole(record.heading);
    json["tilt"].whole(record.tilt);
    json["roll"].whole(record.roll);
    json["orientation_lock"].boolean(record.orientation_lock);
    json["recording"].boolean(record.recording);
    json.close('}');
}

void write_focus(Json& json, const ArdenvueGimbalFocus& record, Nanoseconds now) {
    json["focus"].open('{');
    json["age"].seconds(now - record.time_ns);
    json["type"].word(client::focus_types, record.focus_type);
    json["mode"].whole(record.focus_mode);
    json["max"].whole(record.focus_max);
    json["position"].whole(record.focus_position);
    json["x"].number(record.focus_x);
    json["y"].number(record.focus_y);
    json.close('}');
}

void write_histogram(Json& json, const ArdenvueHistogram& histogram, Nanoseconds now) {
    json["histogram"].open('{');
    json["age"].seconds(now - histogram.time_ns);
    json["bins"].open('[');
    for (const std::uint8_t bin : histogram.bins) {
        json.whole(bin);
    }
    json.close(']');
    json.close('}');
}

// Each key once, as the library looks it up: the first.
void write_words(Json& json, const client::StatusLine& line) {
    json["words"].open('{');
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line.value(line.key(i)) == line.value(i)) {
            json[line.key(i)].text(line.value(i));
        }
    }
    json.close('}');
}

}  // namespace

int ardenvue_state_json(ArdenvueLink* link, char* text, std::size_t size) {
    const client::CameraState& state = link->state;
    const bool has_line = state.line_time != 0;
    const bool has_gimbal = state.gimbal_focus.time_ns != 0;
    Json json{text, size};
    json.open('{');
    json["format"].whole(1);
    write_time(json);
    const Nanoseconds now = client::monotonic_now();
    json["monotonic"].seconds(now);
    write_link(json, *link, now);
    has_line ? write_camera(json, state, now) : json["camera"].null();
    has_gimbal ? write_gimbal(json, state.gimbal_focus, now) : json["gimbal"].null();
    const bool has_focus = has_gimbal && state.gimbal_focus.focus_reported;
    has_focus ? write_focus(json, state.gimbal_focus, now) : json["focus"].null();
    state.has_histogram(now) ? write_histogram(json, state.histogram, now) : json["histogram"].null();
    has_line ? write_words(json, state.line) : json["words"].null();
    json.close('}');
    return json.finish();
}
