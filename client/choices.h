// The words that the camera takes and reports, by subject: what a command says, and what the state calls it.
// The public enumerations number them from 1 in this order.
#pragma once

#include <span>
#include <string_view>

namespace client {

struct Choice {
    constexpr Choice(const char* both) : word{both}, reported{both} {}
    constexpr Choice(const char* said, const char* shown) : word{said}, reported{shown} {}

    std::string_view word;
    std::string_view reported;
};

// The last one of these can't be commanded as the others are, only reported.
inline constexpr Choice all_camera_modes[] = {"photo", "video", "playback"};
inline constexpr Choice all_white_balances[] = {"auto", "sunny", "cloudy", "incandescent", "neon", "custom"};
inline constexpr std::span camera_modes = std::span{all_camera_modes}.first<2>();
inline constexpr std::span white_balances = std::span{all_white_balances}.first<5>();

inline constexpr Choice focus_types[] = {{"mf", "MF"}, {"afs", "AFS"}, {"afc", "AFC"}};
inline constexpr Choice programs[] = {"auto", "shutter", "aperture", "manual"};
inline constexpr Choice iso_values[] = {"auto", "100", "200", "400", "800", "1600", "3200", "6400"};
inline constexpr Choice ev_steps[] = {"-3.0",          "-2.7",          "-2.3",          "-2.0",
                                      "-1.7",          "-1.3",          "-1.0",          "-0.7",
                                      "-0.3",          {"0.0", "0"},    {"0.3", "+0.3"}, {"0.7", "+0.7"},
                                      {"1.0", "+1.0"}, {"1.3", "+1.3"}, {"1.7", "+1.7"}, {"2.0", "+2.0"},
                                      {"2.3", "+2.3"}, {"2.7", "+2.7"}, {"3.0", "+3.0"}};
inline constexpr Choice colors[] = {"none",        "truecolor", "d-cinelike", "d-log", "film",
                                    "black white", "cool",      "twilight",   "pale",  "sepia",
                                    "warm",        "blue",      "blockbuster"};
inline constexpr Choice aspects[] = {"4:3", "16:9"};
inline constexpr Choice photo_formats[] = {{"raw", "RAW"}, {"jpg", "JPG"}, {"jpg+raw", "JPG+RAW"}};
inline constexpr Choice antiflicker_modes[] = {"auto", {"50", "50 Hz"}, {"60", "60 Hz"}};
inline constexpr Choice standards[] = {"PAL", "NTSC"};
inline constexpr Choice transmission_modes[] = {"Regular", "HD", "Smooth"};
inline constexpr Choice switches[] = {"1", "0"};
inline constexpr Choice gimbal_modes[] = {"tiltlocked", "fpv", "follow"};
inline constexpr Choice follow_speeds[] = {"slow", "fast"};
inline constexpr Choice movement_modes[] = {"abs", "rel"};
inline constexpr Choice shutter_speeds[] = {
    "30\"",   "25\"",   "20\"",   "15\"",   "10\"",   "9\"",    "8\"",   "7\"",    "6\"",    "5\"",
    "4\"",    "3.2\"",  "3\"",    "2.5\"",  "2\"",    "1.6\"",  "1.3\"", "1\"",    "1/1.25", "1/1.67",
    "1/2",    "1/2.5",  "1/3",    "1/4",    "1/5",    "1/6.25", "1/8",   "1/10",   "1/12.5", "1/15",
    "1/20",   "1/25",   "1/30",   "1/40",   "1/50",   "1/60",   "1/80",  "1/100",  "1/120",  "1/160",
    "1/200",  "1/240",  "1/320",  "1/400",  "1/500",  "1/640",  "1/800", "1/1000", "1/1250", "1/1600",
    "1/2000", "1/2500", "1/3200", "1/4000", "1/5000", "1/6400", "1/8000"};
inline constexpr Choice resolutions[] = {
    "4096x2160@60",  "4096x2160@50", "4096x2160@48", "4096x2160@30", "4096x2160@25", "4096x2160@24",
    "3840x2160@60",  "3840x2160@50", "3840x2160@48", "3840x2160@30", "3840x2160@25", "3840x2160@24",
    "2720x1530@60",  "2720x1530@50", "2720x1530@48", "2720x1530@30", "2720x1530@25", "2720x1530@24",
    "2704x1520@60",  "2704x1520@50", "2704x1520@48", "2704x1520@30", "2704x1520@25", "2704x1520@24",
    "1920x1080@120", "1920x1080@96", "1920x1080@60", "1920x1080@50", "1920x1080@48", "1920x1080@30",
    "1920x1080@25",  "1920x1080@24", "1280x720@60",  "1280x720@50",  "1280x720@48",  "1280x720@30",
    "1280x720@25",   "1280x720@24"};

// The number, from 1, of the word that the state reports; 0 for any other.
constexpr int reported_number(std::span<const Choice> choices, std::string_view reported) {
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (choices[i].reported == reported) {
            return static_cast<int>(i + 1);
        }
    }
    return 0;
}

}  // namespace client
