// The shutter speeds that the camera knows, and their codes.
#pragma once

#include <cstdint>
#include <string_view>

// Whole part of the seconds, or of the denominator with bit 15 set; digits behind the decimal point.
struct ShutterCode {
    std::uint16_t value;
    std::uint8_t decimal;
};

// The code of a speed written as the camera has it: a fraction as "1/50" or "1/1.25", seconds as a number
// with a double-quote sign behind it; {0, 0} for any other text. Any thread.
ShutterCode find_shutter_code(std::string_view text);
