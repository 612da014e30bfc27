// The stream parser with the packet scanner, fed as the USB reader feeds it, against the plainest way of
// doing the same. After every read both must have handed on the same and hold the same.
#include <random>
#include <vector>

#include "fuzz.h"
#include "io/usb_link.h"
#include "link/stream.h"
#include "sim/aircraft/packet.h"
#include "state/camera_decode.h"
#include "video/frame_buffers.h"

namespace {

using sim::Bytes;
using Handed = std::vector<std::pair<char, Bytes>>;  // 'J' a video payload, 'P' a link packet

Handed handed;

// A video payload or, for other bytes, what the scanner finds in them.
void scan(std::span<const std::uint8_t> payload, Handed& found) {
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

// Searches from the beginning, each time.
void parse(Bytes& buffer, Handed& found) {
    const auto marks = [&](std::size_t p) {
        return buffer[p] == 0x55 && buffer[p + 1] == 0xCC && buffer[p + 3] == 0x57;
    };
    while (buffer.size() > 8) {
        std::size_t start = 0;
        while (start + 5 <= buffer.size() && !(marks(start) && (buffer[start + 2] | 3) == 0x4B &&
                                               buffer[start + 2] != 0x48 && buffer[start + 2] != 0x4B)) {
            ++start;
        }
        start = start + 5 <= buffer.size() ? start : 0;
        if (start + 8 > buffer.size()) {
            return;
        }
        const std::size_t end = start + 8 + buffer[start + 4] + 256U * buffer[start + 5];
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

// A stream of pieces, good and bad, each with its kind and size in front.
Bytes make_stream(fuzz::Input& input) {
    Bytes stream;
    const auto append = [&](const Bytes& bytes) { stream.insert(stream.end(), bytes.begin(), bytes.end()); };
    while (!input.empty() && stream.size() < 60'000) {
        const std::uint8_t kind = input.byte();
        const auto bytes = input.bytes(kind >> 3);
        switch (kind & 7) {
            case 0:
            case 1:
                append(Bytes(bytes.begin(), bytes.end()));
                break;
            case 2:
                append(sim::encode_frame(formats::FrameType::video, bytes));
                break;
            case 3:  // a packet between loose bytes, at times one that is broken
            case 4: {
                Bytes payload(bytes.begin(), bytes.end());
                const Bytes packet = sim::encode_packet({.payload = payload});
                payload.insert(payload.end(), packet.begin(), packet.end());
                payload.insert(payload.end(), packet.begin(), packet.end());
                payload[input.byte() % payload.size()] ^= (kind & 7) == 4 ? input.byte() : 0;
                append(sim::encode_frame(formats::FrameType::packets, payload));
                break;
            }
            case 5:
                append({0x55, 0xCC, static_cast<std::uint8_t>(0x48 + (kind >> 3) % 4), 0x57, input.byte()});
                append({input.byte(), 0, 0});
                break;
            case 6:
                append(Bytes(input.word() % 16'384, bytes.empty() ? std::uint8_t{0x55} : bytes[0]));
                break;
            default:
                append(sim::encode_frame(formats::FrameType::video, Bytes(input.word() % 16'384, 'v')));
        }
    }
    return stream;
}

}  // namespace

// Where the stream goes.
void publish_video_frame(std::span<const std::uint8_t> payload) {
    handed.emplace_back('J', Bytes(payload.begin(), payload.end()));
}
void decode_camera_packet(std::span<const std::uint8_t> packet) {
    handed.emplace_back('P', Bytes(packet.begin(), packet.end()));
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input{data, size};
    std::minstd_rand random{input.byte()};
    const std::size_t longest_read = std::size_t{1} << (1 + input.byte() % 9);
    const Bytes stream = make_stream(input);
    const std::size_t end = std::min(stream.size(), longest_read * 120);

    static std::uint8_t* const buffer = new std::uint8_t[rx_buffer_size];
    std::uint32_t fill = 0;
    std::uint32_t searched = 0;
    Bytes plain;
    Handed expected;
    handed.clear();
    for (std::size_t at = 0; at < end;) {
        const std::size_t read = std::min(1 + random() % longest_read, end - at);
        std::copy_n(&stream[at], read, buffer + fill);
        fill += static_cast<std::uint32_t>(read);
        plain.insert(plain.end(), &stream[at], &stream[at] + read);
        at += read;
        if (fill > rx_fill_limit) {
            fill = 0;
            plain.clear();
        }
        fuzz::require(parse_usb_stream(buffer, fill, searched) == 0, "result");
        parse(plain, expected);
        fuzz::require(handed == expected, "what was handed on");
        fuzz::require(std::equal(plain.begin(), plain.end(), buffer, buffer + fill), "what is left");
        handed.clear();
        expected.clear();
    }
    return 0;
}
