// Test data in hexadecimal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Bytes of a text of digit pairs; spaces between them are skipped.
inline std::vector<std::uint8_t> bytes_from_hex(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != ' ') {
            bytes.push_back(
                static_cast<std::uint8_t>(std::stoi(std::string{text.substr(i, 2)}, nullptr, 16)));
            ++i;
        }
    }
    return bytes;
}
