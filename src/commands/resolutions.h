// The video resolutions that a command may ask for, written as "1920x1080@60".
#pragma once

#include <optional>
#include <string_view>

struct Resolution {
    int width;
    int height;
    int frame_rate;
};

// The resolution of that text, or none when it is not one of the thirty-eight. Any thread.
std::optional<Resolution> find_resolution(std::string_view text);
