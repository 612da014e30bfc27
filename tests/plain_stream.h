// The stream parser and the packet scanner as they are described, a step at a time and without a thought for
// their cost: every byte looked at anew, sums taken bit by bit. What the service's own are held against.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace plain {

using Bytes = std::vector<std::uint8_t>;
using Handed = std::vector<std::pair<char, Bytes>>;  // 'J' a video payload, 'P' a link packet

// Adds the link packets that the scanner finds in a payload.
inline void scan(std::span<const std::uint8_t> payload, Handed& found) {
    for (std::size_t i = 0; i + 1 < payload.size();) {
        const std::size_t length = payload[i + 1] == 0xF8 ? 1016 : payload[i + 1];
        const auto sum = [&](std::uint32_t value, std::uint32_t polynomial, std::size_t count) {
            for (std::size_t bit = 0; bit < 8 * count; ++bit) {
                value ^= bit % 8 == 0 ? payload[i + bit / 8] : 0U;
                value = (value & 1) != 0 ? value >> 1 ^ polynomial : value >> 1;
            }
            return value;
        };
        const bool whole = payload[i] == 0x55 && length >= 4 && i + length <= payload.size();
        if (whole && sum(0x77, 0x8C, 3) == payload[i + 3] &&
            sum(0x3692, 0x8408, length - 2) ==
                (payload[i + length - 2] | std::uint32_t{payload[i + length - 1]} << 8)) {
            found.emplace_back('P', Bytes(&payload[i], &payload[i] + length));
            i += length;
        } else {
            ++i;
        }
    }
}

// Takes whole frames off the front of the buffer and adds what is in them.
inline void parse(Bytes& buffer, Handed& found) {
    const auto marks = [&](std::size_t p) {
        return buffer[p] == 0x55 && buffer[p + 1] == 0xCC && buffer[p + 3] == 0x57;
    };
    while (buffer.size() > 8) {
        std::size_t start = 0;
        while (start + 5 <= buffer.size() &&
               !(marks(start) && (buffer[start + 2] == 'I' || buffer[start + 2] == 'J'))) {
            ++start;
        }
        start = start + 5 <= buffer.size() ? start : 0;
        if (start + 8 > buffer.size()) {
            return;  // no frame is shorter
        }
        const std::size_t end = start + 8 + buffer[start + 4] + std::size_t{256} * buffer[start + 5];
        if (end >= buffer.size()) {
            return;
        }
        const std::span<const std::uint8_t> payload{&buffer[start + 8], end - start - 8};
        if (marks(start) && buffer[start + 2] == 'J' && !payload.empty()) {
            found.emplace_back('J', Bytes(payload.begin(), payload.end()));
        } else if (marks(start) && buffer[start + 2] == 'I') {
            scan(payload, found);
        }
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(end));
    }
}

}  // namespace plain
