// Account of video: what came out of the frame ring is compared with what went into the cable.
#pragma once

#include <cstdint>
#include <span>

namespace formats {

// Account of video payloads. Payloads of zero bytes are none.
struct VideoTally {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    // Of all payloads, their bytes, order and bounds. Starting from 0xCBF29CE484222325 (FNV's), every 64-bit
    // word is mixed in by: digest = (digest ^ word) * 0x100000001B3. The words of a payload are its length,
    // then its bytes, eight a word, low byte first, the last word filled up with zeros.
    std::uint64_t digest = 0xCBF29CE484222325;

    void add(std::span<const std::uint8_t> payload);
};

}  // namespace formats
