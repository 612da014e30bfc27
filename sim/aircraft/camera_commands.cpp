#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>

#include "platform/little_endian.h"
#include "sim/aircraft/aircraft.h"

namespace sim {
namespace {

using namespace std::string_view_literals;
using Payload = std::span<const std::uint8_t>;

constexpr std::uint32_t auto_shutter = 0x0080C8;  // 1/200, what the light asks for
constexpr std::uint16_t auto_iso = 100;

// A code that a command carries, the code that the push then shows, and its name.
struct Choice {
    std::uint8_t command;
    std::uint8_t pushed;
    const char* name;
};

constexpr Choice camera_modes[] = {{0, 0, "photo"}, {1, 1, "video"}};
constexpr Choice focus_types[] = {{0, 0x84, "manual"}, {1, 0x85, "single"}, {2, 0x86, "continuous"}};
constexpr Choice programs[] = {{1, 1, "auto"}, {2, 2, "shutter"}, {3, 3, "aperture"}, {4, 4, "manual"}};
constexpr Choice isos[] = {{0, 0, "auto"}, {3, 3, "100"},  {4, 4, "200"},  {5, 5, "400"},
                           {6, 6, "800"},  {7, 7, "1600"}, {8, 8, "3200"}, {9, 9, "6400"}};
constexpr Choice evs[] = {{7, 7, "-3.0"},   {8, 8, "-2.7"},   {9, 9, "-2.3"},   {10, 10, "-2.0"},
                          {11, 11, "-1.7"}, {12, 12, "-1.3"}, {13, 13, "-1.0"}, {14, 14, "-0.7"},
                          {15, 15, "-0.3"}, {16, 16, "0"},    {17, 17, "+0.3"}, {18, 18, "+0.7"},
                          {19, 19, "+1.0"}, {20, 20, "+1.3"}, {21, 21, "+1.7"}, {22, 22, "+2.0"},
                          {23, 23, "+2.3"}, {24, 24, "+2.7"}, {25, 25, "+3.0"}};
// A temperature of one's own is asked for with 6 and reported as 3.
constexpr Choice white_balances[] = {{0, 0, "auto"},         {1, 1, "sunny"}, {2, 2, "cloudy"},
                                     {4, 4, "incandescent"}, {5, 5, "neon"},  {6, 3, "custom"}};
constexpr Choice colours[] = {{0, 0, "none"},          {6, 6, "d-cinelike"},    {14, 14, "film"},
                              {15, 15, "black white"}, {16, 16, "cool"},        {17, 17, "twilight"},
                              {18, 18, "pale"},        {19, 19, "sepia"},       {20, 20, "warm"},
                              {21, 21, "blue"},        {22, 22, "blockbuster"}, {23, 23, "d-log"},
                              {43, 43, "truecolor"}};
constexpr Choice photo_formats[] = {{0, 0, "raw"}, {1, 1, "jpg"}, {2, 2, "jpg+raw"}};
constexpr Choice antiflickers[] = {{0, 0, "auto"}, {1, 1, "50 Hz"}, {2, 2, "60 Hz"}};
constexpr Choice standards[] = {{0, 0, "PAL"}, {1, 1, "NTSC"}};
constexpr Choice aspects[] = {{0, 0, "4:3"}, {1, 1, "16:9"}};
constexpr Choice sizes[] = {{4, 4, "1280x720"},    {10, 10, "1920x1080"}, {16, 16, "3840x2160"},
                            {22, 22, "4096x2160"}, {24, 24, "2704x1520"}, {31, 31, "2720x1530"}};
constexpr Choice rates[] = {{1, 1, "24"}, {2, 2, "25"}, {3, 3, "30"},  {4, 4, "48"},
                            {5, 5, "50"}, {6, 6, "60"}, {7, 7, "120"}, {11, 11, "96"}};
// The second packet of a transmission mode carries another code for the same mode.
constexpr Choice transmissions[] = {{6, 1, "regular"}, {7, 2, "hd"}, {5, 3, "smooth"}};

const Choice* find(std::span<const Choice> choices, std::uint8_t command) {
    const auto found = std::find_if(choices.begin(), choices.end(),
                                    [command](const Choice& choice) { return choice.command == command; });
    return found == choices.end() ? nullptr : &*found;
}

Outcome not_understood() {
    return {Verdict::not_understood, {}};
}

// Takes the first payload byte as one of the choices and stores what the push shows for it.
template <auto field, const auto& choices>
Outcome choose(Aircraft& aircraft, Payload payload, Time) {
    const Choice* const choice = find(choices, payload[0]);
    if (choice == nullptr) {
        return not_understood();
    }
    aircraft.state.*field = choice->pushed;
    return {Verdict::done, choice->name};
}

// In the programs in which the camera chooses, the shutter is what the light asks for.
void settle_exposure(AircraftState& state) {
    const bool shutter_is_ours = state.exposure_program == 2 || state.exposure_program == 4;
    state.shutter = shutter_is_ours ? state.shutter_set : auto_shutter;
    state.iso = state.iso_code == 0 ? auto_iso : static_cast<std::uint16_t>(100 << (state.iso_code - 3));
}

Outcome set_program(Aircraft& aircraft, Payload payload, Time now) {
    if (payload[1] != 0) {
        return not_understood();
    }
    Outcome outcome = choose<&AircraftState::exposure_program, programs>(aircraft, payload, now);
    settle_exposure(aircraft.state);
    return outcome;
}

Outcome set_iso(Aircraft& aircraft, Payload payload, Time now) {
    Outcome outcome = choose<&AircraftState::iso_code, isos>(aircraft, payload, now);
    settle_exposure(aircraft.state);
    return outcome;
}

std::string shutter_name(std::uint16_t value, std::uint8_t digits) {
    const bool fraction = (value & 0x8000) != 0;
    std::string text = fraction ? "1/" : "";
    text += std::to_string(value & 0x7FFF);
    if (digits != 0) {
        text += '.';
        text += std::to_string(digits);
    }
    text += fraction ? "" : "\"";
    return text;
}

// A fraction from 1/1.25 to 1/8000, or whole seconds up to 30; nothing is what an unknown speed comes as.
Outcome set_shutter(Aircraft& aircraft, Payload payload, Time) {
    const std::uint16_t value = load_le16(&payload[1]);
    const std::uint8_t digits = payload[3];
    const int number = value & 0x7FFF;
    const bool fraction = (value & 0x8000) != 0;
    if (value == 0 && digits == 0) {
        return {Verdict::refused, "no such speed"};
    }
    if (number == 0 || number > (fraction ? 8000 : 30) || digits > 99) {
        return not_understood();
    }
    aircraft.state.shutter_set = value | static_cast<std::uint32_t>(digits) << 16;
    settle_exposure(aircraft.state);
    return {Verdict::done, shutter_name(value, digits)};
}

// The lens opens to f/2.8 and closes to f/11.
Outcome set_aperture(Aircraft& aircraft, Payload payload, Time) {
    const std::uint16_t aperture = load_le16(payload.data());
    char text[16];
    std::snprintf(text, sizeof text, "f/%.2f", aperture / 100.0);
    if (aperture < 280 || aperture > 1100) {
        return {Verdict::refused, text};
    }
    aircraft.state.aperture = aperture;
    return {Verdict::done, text};
}

Outcome set_white_balance(Aircraft& aircraft, Payload payload, Time now) {
    Outcome outcome = choose<&AircraftState::white_balance, white_balances>(aircraft, payload, now);
    if (outcome.verdict == Verdict::done) {
        aircraft.state.wb_temperature = payload[1];
        outcome.detail += ", " + std::to_string(payload[1] * 100) + " K";
    }
    return outcome;
}

Outcome start_recording(Aircraft& aircraft, Payload, Time now) {
    if (!aircraft.state.recording) {
        aircraft.state.recording = true;
        aircraft.state.camera_mode = 1;
        aircraft.record_start = now;
        aircraft.record_left_at_start = aircraft.state.record_left_seconds;
    }
    return {Verdict::done, {}};
}

Outcome stop_recording(Aircraft& aircraft, Payload, Time now) {
    advance(aircraft, now);
    aircraft.state.recording = false;
    aircraft.state.record_seconds = 0;
    return {Verdict::done, {}};
}

Outcome take_photo(Aircraft& aircraft, Payload, Time) {
    if (aircraft.state.shots_left == 0) {
        return {Verdict::refused, "card full"};
    }
    --aircraft.state.shots_left;
    return {Verdict::done, std::to_string(aircraft.state.shots_left) + " left"};
}

// Seen as the other of the two codes of continuous focus.
Outcome keep_focusing(Aircraft& aircraft, Payload, Time) {
    aircraft.state.focus_mode = 0xA6;
    return {Verdict::done, {}};
}

Outcome set_focus_point(Aircraft& aircraft, Payload payload, Time) {
    aircraft.state.focus_x = std::bit_cast<float>(load_le32(payload.data()));
    aircraft.state.focus_y = std::bit_cast<float>(load_le32(&payload[4]));
    char text[64];
    std::snprintf(text, sizeof text, "%g %g", static_cast<double>(aircraft.state.focus_x),
                  static_cast<double>(aircraft.state.focus_y));
    return {Verdict::done, text};
}

Outcome set_focus_position(Aircraft& aircraft, Payload payload, Time) {
    const std::uint16_t position = load_le16(payload.data());
    aircraft.state.focus_position = std::min(position, aircraft.state.focus_max);
    return {Verdict::done, std::to_string(position)};
}

Outcome set_resolution(Aircraft& aircraft, Payload payload, Time) {
    const Choice* const size = find(sizes, payload[0]);
    const Choice* const rate = find(rates, payload[1]);
    if (size == nullptr || rate == nullptr || payload[2] != 0 || payload[3] != 0 || payload[4] != 0) {
        return not_understood();
    }
    aircraft.state.resolution = size->pushed;
    aircraft.state.frame_rate = rate->pushed;
    return {Verdict::done, std::string(size->name) + "@" + rate->name};
}

Outcome confirm_resolution(Aircraft& aircraft, Payload payload, Time) {
    const bool same = payload[0] == aircraft.state.resolution && payload[1] == aircraft.state.frame_rate;
    return {same ? Verdict::done : Verdict::not_understood, {}};
}

// Code 0 is what an unknown mode comes as.
Outcome set_transmission(Aircraft& aircraft, Payload payload, Time) {
    const Choice* const mode = find(transmissions, payload[1]);
    const bool rest_is_zero =
        std::all_of(payload.begin() + 2, payload.end(), [](int byte) { return byte == 0; });
    if (!rest_is_zero || (mode == nullptr && payload[1] != 0)) {
        return not_understood();
    }
    aircraft.transmission_code = mode == nullptr ? 0 : mode->pushed;
    return {mode == nullptr ? Verdict::refused : Verdict::done,
            mode == nullptr ? "no such mode" : mode->name};
}

Outcome confirm_transmission(Aircraft& aircraft, Payload payload, Time) {
    const std::array<std::uint8_t, 6> expected{0x04, 0, 0, aircraft.transmission_code, 0, 0};
    return {std::equal(payload.begin(), payload.end(), expected.begin()) ? Verdict::done
                                                                         : Verdict::not_understood,
            {}};
}

Outcome format_card(Aircraft& aircraft, Payload, Time) {
    const AircraftState empty;
    aircraft.state.shots_left = empty.shots_left;
    aircraft.state.record_left_seconds = empty.record_left_seconds;
    aircraft.record_left_at_start = empty.record_left_seconds;
    return {Verdict::done, {}};
}

// Camera settings as they left the factory; what the card holds, the batteries and the gimbal stay.
Outcome reset_camera(Aircraft& aircraft, Payload, Time now) {
    advance(aircraft, now);
    AircraftState fresh;
    fresh.shots_left = aircraft.state.shots_left;
    fresh.record_left_seconds = aircraft.state.record_left_seconds;
    aircraft.state = fresh;
    return {Verdict::done, {}};
}

template <bool on>
Outcome switch_histogram(Aircraft& aircraft, Payload, Time) {
    aircraft.state.histogram_on = on;
    return {Verdict::done, {}};
}

Outcome set_aspect(Aircraft& aircraft, Payload payload, Time now) {
    return choose<&AircraftState::aspect, aspects>(aircraft, payload.subspan(1), now);
}

using State = AircraftState;

constexpr std::uint8_t camera = 0x02;  // the command set

constexpr CommandRow commands[] = {
    // name, set, id, payload size, act, details
    {"shot", camera, 0x01, 1, take_photo, {.begins = "\x01"sv}},
    {"record start", camera, 0x02, 1, start_recording, {.begins = "\x01"sv}},
    {"record stop", camera, 0x02, 1, stop_recording, {.begins = "\0"sv}},
    {"camera mode", camera, 0x10, 1, choose<&State::camera_mode, camera_modes>, {.sender = 0x09}},
    {"aspect", camera, 0x12, 2, set_aspect, {.begins = "\0"sv}},
    {"photo format", camera, 0x16, 1, choose<&State::photo_format, photo_formats>},
    {"resolution", camera, 0x18, 5, set_resolution, {.then = "resolution again"}},
    {"resolution again", camera, 0xAF, 2, confirm_resolution, {.continues = true}},
    {"exposure program", camera, 0x1E, 2, set_program},
    {"focus type continuous",
     camera,
     0x24,
     1,
     choose<&State::focus_mode, focus_types>,
     {.begins = "\x02"sv, .then = "keep focusing"}},
    {"keep focusing", camera, 0x22, 1, keep_focusing, {.begins = "\x03"sv, .continues = true}},
    {"focus type", camera, 0x24, 1, choose<&State::focus_mode, focus_types>},
    {"aperture", camera, 0x26, 2, set_aperture},
    {"shutter", camera, 0x28, 4, set_shutter, {.begins = "\x01"sv}},
    {"iso", camera, 0x2A, 1, set_iso},
    {"white balance", camera, 0x2C, 2, set_white_balance},
    {"ev", camera, 0x2E, 1, choose<&State::ev_code, evs>},
    {"focus point", camera, 0x30, 8, set_focus_point},
    {"colour", camera, 0x42, 1, choose<&State::colour, colours>},
    {"anti-flicker", camera, 0x46, 1, choose<&State::antiflicker, antiflickers>},
    {"transmission", camera, 0x4C, 6, set_transmission, {.begins = "\x01"sv, .then = "transmission again"}},
    {"transmission again", camera, 0x4C, 6, confirm_transmission, {.begins = "\x04"sv, .continues = true}},
    {"histogram on", camera, 0x60, 1, switch_histogram<true>, {.begins = "\x01"sv}},
    {"histogram off", camera, 0x60, 1, switch_histogram<false>, {.begins = "\0"sv}},
    {"video standard", camera, 0x66, 1, choose<&State::standard, standards>},
    {"format card", camera, 0x72, 0, format_card},
    {"reset", camera, 0x78, 1, reset_camera, {.begins = "\0"sv}},
    {"focus position", camera, 0x95, 2, set_focus_position},

};

}  // namespace

std::span<const CommandRow> camera_commands() {
    return commands;
}

}  // namespace sim
