// The texts of the camera's numbers, as the status line carries them. Written without the printf family,
// whose cost would exceed all else that is done for a packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// Room for the longest text of any of these, whatever the value.
struct ShortText {
    static constexpr std::size_t capacity = 24;
    char text[capacity];
};

// Seconds as hours, minutes and seconds, "01:02:05"; from 100 hours on the hours take more digits.
ShortText format_duration(std::uint32_t seconds);

// Megabytes as gigabytes with one decimal, "15.0G".
ShortText format_gigabytes(std::uint32_t megabytes);

// An f-number x 100: "2.8", "11". One decimal unless the number is whole.
ShortText format_aperture(std::uint16_t hundredths);

// A 24-bit shutter code: "1/500", "1/8.5", "2.5\"" with a double-quote sign for seconds. Nothing when the
// code means neither seconds nor a fraction.
std::optional<ShortText> format_shutter(std::uint32_t code);
