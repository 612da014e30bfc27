// The stream parser with the packet scanner, fed as the USB reader feeds it, against the plainest way of
// doing the same. After every read both must have handed on the same and hold the same.
#include <random>
#include <vector>

#include "fuzz.h"
#include "io/usb_link.h"
#include "link/stream.h"
#include "sim/aircraft/packet.h"
#include "state/camera_decode.h"
#include "tests/plain_stream.h"
#include "video/frame_buffers.h"

namespace {

using sim::Bytes;

plain::Handed handed;

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
    Bytes left;
    plain::Handed expected;
    handed.clear();
    for (std::size_t at = 0; at < end;) {
        const std::size_t read = std::min(1 + random() % longest_read, end - at);
        std::copy_n(&stream[at], read, buffer + fill);
        fill += static_cast<std::uint32_t>(read);
        left.insert(left.end(), &stream[at], &stream[at] + read);
        at += read;
        if (fill > rx_fill_limit) {
            fill = 0;
            left.clear();
        }
        fuzz::require(parse_usb_stream(buffer, fill, searched) == 0, "result");
        plain::parse(left, expected);
        fuzz::require(handed == expected, "what was handed on");
        fuzz::require(std::equal(left.begin(), left.end(), buffer, buffer + fill), "what is left");
        handed.clear();
        expected.clear();
    }
    return 0;
}
