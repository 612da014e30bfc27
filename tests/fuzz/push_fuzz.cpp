// The push decoder with the status line: any pushes, and the line that must come of them, written a second
// time with printf and tables of its own.
#include <cmath>
#include <cstring>
#include <map>

#include "fuzz.h"
#include "link/stream.h"
#include "platform/little_endian.h"
#include "sim/aircraft/packet.h"
#include "state/camera_state.h"
#include "state/status_line.h"

namespace {

ardenvue::CameraState shared{};
std::map<std::string, std::string> line;

using Texts = std::map<int, const char*>;
using Payload = std::span<const std::uint8_t>;

template <typename... Values>
std::string print(const char* format, Values... values) {
    char text[64];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

const char* find(const Texts& texts, int code, const char* otherwise) {
    const auto found = texts.find(code);
    return found == texts.end() ? otherwise : found->second;
}

std::string duration(std::uint32_t seconds) {
    return print("%02u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
}

void set_shutter(const char* key, const std::uint8_t* code, std::size_t longest) {
    const bool fraction = code[1] >= 0x80;
    if (code[1] == 0 || fraction) {
        std::string text = fraction ? print("1/%d", (code[1] - 0x80) * 256 + code[0]) : print("%d", code[0]);
        text += (code[2] != 0 ? print(".%d", code[2]) : "") + (fraction ? "" : "\"");
        line[key] = text.substr(0, longest);
    }
}

void status_push(Payload p) {
    static const Texts models{{2, "Phantom 3 Std"},      {3, "Phantom 3 Adv"},  {4, "Phantom 3 Pro"},
                              {6, "Phantom 4"},          {9, "Mavic Pro"},      {10, "Phantom 3 4K"},
                              {13, "Phantom 4 Pro"},     {14, "Phantom 4 Pro"}, {15, "Phantom 4 Pro"},
                              {28, "Phantom 4 Pro V2.0"}};
    const char* model = find(models, p[33], nullptr);
    line["camera_detected"] = "1";
    line["camera_model"] = (model != nullptr ? model : print("Unknown device id %d", p[33])).substr(0, 19);
    line["camera_mode"] = find({{0, "photo"}, {1, "video"}, {2, "playback"}}, p[4], "unknown");
    const float card = static_cast<float>(load_le32(&p[9])) * 0.001F;
    line["sd"] = load_le32(&p[9]) != 0 ? print("%1.1fG", static_cast<double>(card)) : "";
    line["shots_left"] = print("%d", static_cast<int>(load_le32(&p[13])));
    line["rec_time_left"] = duration(load_le32(&p[17])).substr(0, 19);
    line["rec_time"] = duration(load_le16(&p[29]));
}

void parameter_push(Payload p) {
    line["resolution"] = find({{4, "1280x720"},
                               {10, "1920x1080"},
                               {16, "3840x2160"},
                               {22, "4096x2160"},
                               {24, "2704x1520"},
                               {31, "2720x1530"}},
                              p[13], "");
    line["framerate"] =
        find({{1, "24"}, {2, "25"}, {3, "30"}, {4, "48"}, {5, "50"}, {6, "60"}, {7, "120"}, {11, "96"}},
             p[14], "");
    line["format"] = line["resolution"] + "@" + line["framerate"];
    line["wb"] =
        find({{0, "auto"}, {1, "sunny"}, {2, "cloudy"}, {4, "incandescent"}, {5, "neon"}}, p[23], "custom");
    line["wb_temp"] = print("%d", p[24] * 100);
    line["shot_mode"] = find({{0, "RAW"}, {1, "JPG"}, {2, "JPG+RAW"}}, p[12], "");
    const double f = load_le16(&p[38]) * 0.01;
    line["aperture"] = print(std::trunc(f) == f ? "%1.0f" : "%1.1f", f);
    line["iso"] = print("%d", load_le16(&p[43]));
    line["iso_set"] =
        find({{3, "100"}, {4, "200"}, {5, "400"}, {6, "800"}, {7, "1600"}, {8, "3200"}, {9, "6400"}}, p[5],
             "auto");
    line["ae"] = p[56] != 0 ? "1" : "0";
    const int third = p[6] >= 7 && p[6] <= 25 ? p[6] - 16 : 0;
    line["ev"] = third != 0 ? print("%+.1f", third / 3.0) : "0";
    line["color_mode"] = find({{6, "d-cinelike"},
                               {14, "film"},
                               {15, "black white"},
                               {16, "cool"},
                               {17, "twilight"},
                               {18, "pale"},
                               {19, "sepia"},
                               {20, "warm"},
                               {21, "blue"},
                               {22, "blockbuster"},
                               {23, "d-log"},
                               {43, "truecolor"}},
                              p[31], "none");
    line["image_mode"] = find({{2, "shutter"}, {3, "aperture"}, {4, "manual"}}, p[20], "auto");
    line["ratio"] = p[10] == 1 ? "16:9" : "4:3";
    line["video_std"] = p[55] % 2 != 0 ? "NTSC" : "PAL";
    line["antiflicker"] = find({{1, "50 Hz"}, {2, "60 Hz"}}, p[32], "auto");
    set_shutter("shutter_set", &p[2], 9);
    set_shutter("shutter", &p[40], 11);
}

void battery_push(Payload p) {
    line["battery_level"] = print("%d", static_cast<std::int8_t>(p[20]));
    line["voltage"] = "0";
    line["battery_temp"] = print("%1.1f", load_le16(&p[17]) * 0.1);
}

void power_push(Payload p) {
    line["battery_level"] = print("%d", static_cast<std::int8_t>(p[0]));
    line["voltage"] = print("%d", static_cast<std::int16_t>(load_le16(&p[1])));
}

void attitude_push(Payload p) {
    const std::int16_t values[] = {static_cast<std::int16_t>(load_le16(&p[4])),
                                   static_cast<std::int16_t>(load_le16(&p[0])),
                                   static_cast<std::int16_t>(-static_cast<std::int16_t>(load_le16(&p[2])))};
    fuzz::require(std::memcmp(shared.attitude, values, sizeof values) == 0, "shared attitude");
}

const struct {
    std::uint8_t length, set, id;
    void (*expect)(Payload);
} kinds[] = {{31, 0x04, 0x05, attitude_push},   {44, 0x0D, 0x02, battery_push},
             {48, 0x55, 0x66, power_push},      {53, 0x02, 0x80, status_push},
             {54, 0x02, 0x77, [](Payload) {}},  {77, 0x11, 0x22, [](Payload) { line["histogram"] = "1"; }},
             {106, 0x02, 0x81, parameter_push}, {107, 0x02, 0x81, parameter_push},
             {58, 0x02, 0x88, [](Payload) {}},  {53, 0x02, 0x81, [](Payload) {}}};

constexpr const char* keys[] = {"camera_detected",
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

}  // namespace

// In place of the shared record.
ardenvue::CameraState* open_camera_state() {
    return &shared;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    clear_telemetry_state();
    line.clear();
    for (const char* number : {"camera_detected", "shots_left", "voltage", "battery_level", "ae", "iso",
                               "wb_temp", "sensor", "histogram", "pl_id"}) {
        line[number] = "0";
    }
    line["battery_temp"] = "0.0";
    line["format"] = "@";
    for (fuzz::Input input{data, size}; !input.empty();) {
        const auto& kind = kinds[input.byte() % std::size(kinds)];
        const auto given = input.bytes(kind.length - sim::packet_overhead);
        sim::Packet packet{.set = kind.set, .id = kind.id, .payload = {given.begin(), given.end()}};
        packet.payload.resize(kind.length - sim::packet_overhead);
        scan_camera_packets(sim::encode_packet(packet));
        kind.expect(packet.payload);
    }
    std::string expected = "\x07";
    for (const char* key : keys) {
        expected += std::string{key} + "=" + line[key] + ",";
    }
    char text[status_line_capacity];
    const std::size_t length = write_status_line(get_telemetry_state(), text);
    fuzz::require(expected == std::string(text, length), text + ("\n instead of " + expected));
    fuzz::require(std::strlen(text) == length, "length");
    return 0;
}
