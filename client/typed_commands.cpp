// The typed functions of ardenvue/commands.h. Each says the words of its command, so that there is one road
// by which commands are checked and sent.
#include <charconv>
#include <cmath>
#include <span>
#include <string>

#include "ardenvue/commands.h"
#include "client/choices.h"
#include "client/guarded.h"
#include "client/link.h"
#include "formats/nearest_word.h"

namespace {

using client::Choice;

int send_words(ArdenvueLink* link, const std::string& words) {
    return ardenvue_send(link, words.c_str());
}

// One of an enumeration, whose numbers are the choices' places. One that is none of them is said as it is,
// and so refused with the choices.
int send_choice(ArdenvueLink* link, const char* name, std::span<const Choice> choices, int number) {
    return client::guarded([&] {
        const auto index = static_cast<std::size_t>(number) - 1;
        return send_words(link, std::string{name} + " " +
                                    (index < choices.size() ? std::string{choices[index].word}
                                                            : "number " + std::to_string(number)));
    });
}

// In decimals, whatever the locale; a number too long for that is said as "nan", and so refused.
std::string decimals(double value, int digits) {
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, digits);
    return written.ec == std::errc{} ? std::string{text, written.ptr} : "nan";
}

}  // namespace

int ardenvue_start_recording(ArdenvueLink* link) {
    return ardenvue_send(link, "record start");
}

int ardenvue_stop_recording(ArdenvueLink* link) {
    return ardenvue_send(link, "record stop");
}

int ardenvue_take_photo(ArdenvueLink* link) {
    return ardenvue_send(link, "shot");
}

int ardenvue_set_camera_mode(ArdenvueLink* link, enum ArdenvueCameraMode mode) {
    return send_choice(link, "camera mode", client::camera_modes, mode);
}

int ardenvue_set_photo_format(ArdenvueLink* link, enum ArdenvuePhotoFormat format) {
    return send_choice(link, "shotmode", client::photo_formats, format);
}

int ardenvue_set_photo_ratio(ArdenvueLink* link, enum ArdenvuePhotoRatio ratio) {
    return send_choice(link, "video_aspect", client::aspects, ratio);
}

int ardenvue_set_video_format(ArdenvueLink* link, int width, int height, int rate) {
    return client::guarded([&] {
        return send_words(link, "video_resolution " + std::to_string(width) + "x" + std::to_string(height) +
                                    "@" + std::to_string(rate));
    });
}

int ardenvue_set_video_standard(ArdenvueLink* link, enum ArdenvueVideoStandard standard) {
    return send_choice(link, "video_std", client::standards, standard);
}

int ardenvue_set_transmission(ArdenvueLink* link, enum ArdenvueTransmission mode) {
    return send_choice(link, "video_transmission", client::transmission_modes, mode);
}

int ardenvue_reset_camera(ArdenvueLink* link) {
    return ardenvue_send(link, "resetcamera");
}

int ardenvue_format_card(ArdenvueLink* link) {
    return ardenvue_send(link, "format sd");
}

int ardenvue_set_exposure_program(ArdenvueLink* link, enum ArdenvueExposureProgram program) {
    return send_choice(link, "video_mode", client::programs, program);
}

int ardenvue_set_shutter(ArdenvueLink* link, double seconds) {
    return client::guarded([&] {
        for (const Choice& speed : client::shutter_speeds) {
            const double known = formats::number_of(speed.word).value_or(0);
            if (std::abs(seconds - known) <= known / 1000) {
                return send_words(link, "shutter " + std::string{speed.word});
            }
        }
        return send_words(link, "shutter " + decimals(seconds, 5));
    });
}

int ardenvue_set_aperture(ArdenvueLink* link, double number) {
    return client::guarded([&] { return send_words(link, "aperture " + decimals(number, 2)); });
}

int ardenvue_set_iso(ArdenvueLink* link, int iso) {
    return client::guarded(
        [&] { return send_words(link, "iso " + (iso == 0 ? "auto" : std::to_string(iso))); });
}

int ardenvue_set_ev(ArdenvueLink* link, double ev) {
    return client::guarded([&] { return send_words(link, "ev " + decimals(ev, 1)); });
}

int ardenvue_set_white_balance(ArdenvueLink* link, enum ArdenvueWhiteBalance light) {
    return send_choice(link, "wb", client::white_balances, light);
}

int ardenvue_set_white_balance_kelvin(ArdenvueLink* link, int kelvin) {
    return client::guarded([&] { return send_words(link, "wb custom " + std::to_string(kelvin)); });
}

int ardenvue_set_color(ArdenvueLink* link, enum ArdenvueColor color) {
    return send_choice(link, "color", client::colors, color);
}

int ardenvue_set_antiflicker(ArdenvueLink* link, enum ArdenvueAntiflicker mode) {
    return send_choice(link, "antiflicker", client::antiflicker_modes, mode);
}

int ardenvue_set_histogram(ArdenvueLink* link, bool on) {
    return ardenvue_send(link, on ? "histogram 1" : "histogram 0");
}

int ardenvue_set_focus_type(ArdenvueLink* link, enum ArdenvueFocusType type) {
    return send_choice(link, "focus type", client::focus_types, type);
}

int ardenvue_set_focus_point(ArdenvueLink* link, double x, double y) {
    return client::guarded(
        [&] { return send_words(link, "focus point " + decimals(x, 4) + " " + decimals(y, 4)); });
}

int ardenvue_set_focus_position(ArdenvueLink* link, int percent) {
    return client::guarded([&] { return send_words(link, "focus manual " + std::to_string(percent)); });
}

int ardenvue_face_ahead(ArdenvueLink* link) {
    return ardenvue_send(link, "position normal");
}

int ardenvue_face_back(ArdenvueLink* link) {
    return ardenvue_send(link, "position selfie");
}

int ardenvue_lock_orientation(ArdenvueLink* link, bool locked) {
    return ardenvue_send(link, locked ? "orientation lock" : "orientation unlock");
}

int ardenvue_set_gimbal_mode(ArdenvueLink* link, enum ArdenvueGimbalMode mode) {
    return send_choice(link, "gimbal mode", client::gimbal_modes, mode);
}

int ardenvue_set_follow_speed(ArdenvueLink* link, enum ArdenvueFollowSpeed speed) {
    return send_choice(link, "gimbal follow", client::follow_speeds, speed);
}

int ardenvue_calibrate_horizon(ArdenvueLink* link) {
    return ardenvue_send(link, "horizont calibrate");
}

int ardenvue_set_movement(ArdenvueLink* link, enum ArdenvueMovement movement) {
    return send_choice(link, "set movement", client::movement_modes, movement);
}
