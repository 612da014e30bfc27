// The camera's codes and their texts. The decoder turns a push's code into a text, the command builders a
// text into a code; each table serves both, and where the two directions differ the row shows it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

namespace camera_codes {

using Code = std::uint8_t;

struct CodeText {
    Code code;
    const char* text;
};

inline constexpr CodeText exposure_programs[] = {{1, "auto"}, {2, "shutter"}, {3, "aperture"}, {4, "manual"}};

inline constexpr CodeText iso_values[] = {{3, "100"},  {4, "200"},  {5, "400"}, {6, "800"},
                                          {7, "1600"}, {8, "3200"}, {9, "6400"}};

inline constexpr CodeText color_profiles[] = {
    {43, "truecolor"},   {6, "d-cinelike"}, {23, "d-log"},    {14, "film"},
    {15, "black white"}, {16, "cool"},      {17, "twilight"}, {18, "pale"},
    {19, "sepia"},       {20, "warm"},      {21, "blue"},     {22, "blockbuster"},
};

inline constexpr CodeText aspect_ratios[] = {{0, "4:3"}, {1, "16:9"}};
inline constexpr CodeText video_standards[] = {{0, "PAL"}, {1, "NTSC"}};

// The text that the status reports, and the text that a command uses.
struct TwoTextCode {
    Code code;
    const char* reported;
    const char* commanded;
};

inline constexpr TwoTextCode photo_formats[] = {
    {0, "RAW", "raw"}, {1, "JPG", "jpg"}, {2, "JPG+RAW", "jpg+raw"}};
inline constexpr TwoTextCode antiflicker_modes[] = {{1, "50 Hz", "50"}, {2, "60 Hz", "60"}};

// The custom setting is reported with one code and commanded with another. The fixed settings are commanded
// with a second byte of their own; the custom one carries the colour temperature there instead.
struct WhiteBalance {
    Code reported;
    Code commanded;
    const char* text;
    std::optional<Code> second_byte;
};

inline constexpr WhiteBalance white_balances[] = {
    {0, 0, "auto", 68},         {1, 1, "sunny", 48}, {2, 2, "cloudy", 64},
    {4, 4, "incandescent", 68}, {5, 5, "neon", 25},  {3, 6, "custom", std::nullopt},
};

struct VideoSize {
    Code code;
    const char* text;
    int width;
    int height;
};

inline constexpr VideoSize video_sizes[] = {
    {22, "4096x2160", 4096, 2160}, {16, "3840x2160", 3840, 2160}, {31, "2720x1530", 2720, 1530},
    {24, "2704x1520", 2704, 1520}, {10, "1920x1080", 1920, 1080}, {4, "1280x720", 1280, 720},
};

struct FrameRate {
    Code code;
    const char* text;
    int frames_per_second;
};

inline constexpr FrameRate frame_rates[] = {{1, "24", 24}, {2, "25", 25}, {3, "30", 30},   {4, "48", 48},
                                            {5, "50", 50}, {6, "60", 60}, {7, "120", 120}, {11, "96", 96}};

// Exposure compensation in steps of a third, written with one decimal; 16 is 0 EV.
struct ExposureStep {
    Code code;
    double ev;
    const char* text;
};

inline constexpr ExposureStep exposure_steps[] = {
    {7, -3.0, "-3.0"},  {8, -2.7, "-2.7"},  {9, -2.3, "-2.3"},  {10, -2.0, "-2.0"}, {11, -1.7, "-1.7"},
    {12, -1.3, "-1.3"}, {13, -1.0, "-1.0"}, {14, -0.7, "-0.7"}, {15, -0.3, "-0.3"}, {16, 0.0, "0"},
    {17, 0.3, "+0.3"},  {18, 0.7, "+0.7"},  {19, 1.0, "+1.0"},  {20, 1.3, "+1.3"},  {21, 1.7, "+1.7"},
    {22, 2.0, "+2.0"},  {23, 2.3, "+2.3"},  {24, 2.7, "+2.7"},  {25, 3.0, "+3.0"},
};

// First row of a table whose member equals the value, or null. Members are codes, numbers or texts:
// find(iso_values, &CodeText::code, 3), find(iso_values, &CodeText::text, "100").
template <typename Row, std::size_t count, typename Member, typename Value>
constexpr const Row* find(const Row (&table)[count], Member Row::*member, const Value& value) {
    for (const Row& row : table) {
        if constexpr (std::is_same_v<Member, const char*>) {
            if (std::string_view{row.*member} == std::string_view{value}) {
                return &row;
            }
        } else {
            if (row.*member == value) {
                return &row;
            }
        }
    }
    return nullptr;
}

}  // namespace camera_codes
