// Multi-byte fields on the wire and in shared records are little-endian and may stand at any address: they go
// in and out through these, byte by byte, so nothing relies on alignment or on the board's byte order.
#pragma once

#include <cstdint>

constexpr std::uint16_t load_le16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr std::uint32_t load_le24(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(load_le16(bytes)) | static_cast<std::uint32_t>(bytes[2]) << 16;
}

constexpr std::uint32_t load_le32(const std::uint8_t* bytes) {
    return load_le24(bytes) | static_cast<std::uint32_t>(bytes[3]) << 24;
}

constexpr void store_le16(std::uint8_t* bytes, std::uint16_t value) {
    bytes[0] = static_cast<std::uint8_t>(value);
    bytes[1] = static_cast<std::uint8_t>(value >> 8);
}

constexpr void store_le32(std::uint8_t* bytes, std::uint32_t value) {
    store_le16(bytes, static_cast<std::uint16_t>(value));
    store_le16(bytes + 2, static_cast<std::uint16_t>(value >> 16));
}
