#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace formats {

// "55 0E 04", for reports and logs.
inline std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : " ";
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

}  // namespace formats
