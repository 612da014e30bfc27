#include "ctl/packet_text.h"

#include <cstdint>
#include <cstdio>
#include <span>

#include "formats/hex.h"
#include "formats/packet_frame.h"
#include "platform/little_endian.h"

namespace ctl {
namespace {

constexpr std::size_t sender_offset = 4;
constexpr std::size_t receiver_offset = 5;
constexpr std::size_t sequence_offset = 6;
constexpr std::size_t type_offset = 8;
constexpr std::size_t set_offset = 9;
constexpr std::size_t id_offset = 10;
constexpr std::size_t payload_offset = 11;

constexpr int any = -1;

// What the fields of a packet must be for its name, as docs/protocol.md lists them.
struct Name {
    int set;
    int id;
    int size;
    int first;  // byte of the payload
    const char* name;
};

constexpr Name pushes[] = {
    {0x04, 0x05, 31, any, "gimbal attitude"},
    {0x0D, 0x02, 44, any, "battery"},
    {any, any, 48, any, "power"},
    {0x02, 0x80, 53, any, "camera status"},
    {0x02, any, 54, any, "focus"},
    {0x02, any, 58, any, "focus"},
    {any, any, 77, any, "histogram"},
    {0x02, 0x81, 106, any, "camera parameters"},
    {0x02, 0x81, 107, any, "camera parameters"},
};

constexpr Name commands[] = {
    {0x02, 0x01, any, any, "shot"},
    {0x02, 0x02, any, 1, "record start"},
    {0x02, 0x02, any, 0, "record stop"},
    {0x02, 0x10, any, 0, "camera mode photo"},
    {0x02, 0x10, any, 1, "camera mode video"},
    {0x02, 0x12, any, any, "video_aspect"},
    {0x02, 0x16, any, any, "shotmode"},
    {0x02, 0x18, any, any, "video_resolution"},
    {0x02, 0xAF, any, any, "video_resolution"},
    {0x02, 0x1E, any, any, "video_mode"},
    {0x02, 0x22, any, any, "focus type"},
    {0x02, 0x24, any, any, "focus type"},
    {0x02, 0x26, any, any, "aperture"},
    {0x02, 0x28, any, any, "shutter"},
    {0x02, 0x2A, any, any, "iso"},
    {0x02, 0x2C, any, 6, "wb custom"},
    {0x02, 0x2C, any, any, "wb"},
    {0x02, 0x2E, any, any, "ev"},
    {0x02, 0x30, any, any, "focus point"},
    {0x02, 0x42, any, any, "color"},
    {0x02, 0x46, any, any, "antiflicker"},
    {0x02, 0x4C, any, any, "video_transmission"},
    {0x02, 0x60, any, 1, "histogram 1"},
    {0x02, 0x60, any, 0, "histogram 0"},
    {0x02, 0x66, any, any, "video_std"},
    {0x02, 0x72, any, any, "format sd"},
    {0x02, 0x78, any, any, "resetcamera"},
    {0x02, 0x95, any, any, "focus manual"},
    {0x04, 0x01, any, any, "horizont calibrate"},
    {0x04, 0x07, any, any, "horizont calibrate"},
    {0x04, 0x08, any, any, "horizont calibrate"},
    {0x04, 0x0A, any, any, "absolute gimbal position"},
    {0x04, 0x0C, any, any, "relative gimbal motion"},
    {0x04, 0x4C, any, 0xFE, "gimbal position"},
    {0x04, 0x4C, any, any, "gimbal mode"},
    {0x04, 0x50, any, any, "gimbal mode or follow"},
};

bool fits(const Name& name, std::span<const std::uint8_t> packet) {
    const auto is = [](int wanted, int value) { return wanted == any || wanted == value; };
    return is(name.set, packet[set_offset]) && is(name.id, packet[id_offset]) &&
           is(name.size, static_cast<int>(packet.size())) &&
           (name.first == any ||
            (packet.size() > formats::packet_overhead && packet[payload_offset] == name.first));
}

std::string time_text(std::int64_t time_ns) {
    const std::int64_t microseconds = time_ns / 1000;
    char text[40];
    std::snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(microseconds / 1'000'000),
                  static_cast<long long>(microseconds % 1'000'000));
    return text;
}

std::string fields(std::span<const std::uint8_t> packet) {
    char text[160];
    std::snprintf(text, sizeof text, R"("sender":%u,"receiver":%u,"sequence":%u,"type":%u,"set":%u,"id":%u)",
                  unsigned{packet[sender_offset]}, unsigned{packet[receiver_offset]},
                  unsigned{load_le16(packet.data() + sequence_offset)}, unsigned{packet[type_offset]},
                  unsigned{packet[set_offset]}, unsigned{packet[id_offset]});
    return text;
}

}  // namespace

std::string packet_name(const ArdenvuePiece& piece) {
    if (piece.kind == ARDENVUE_PIECE_DAMAGED) {
        return "damaged";
    }
    const bool is_command = piece.kind == ARDENVUE_PIECE_COMMAND;
    const std::span<const Name> names = is_command ? std::span<const Name>{commands} : pushes;
    for (const Name& name : names) {
        if (fits(name, {piece.data, piece.size})) {
            return name.name;
        }
    }
    return "unknown";
}

std::string packet_line(const ArdenvuePiece& piece, bool has_times) {
    static constexpr const char* no_fields =
        R"("sender":null,"receiver":null,"sequence":null,"type":null,"set":null,"id":null)";
    const std::span<const std::uint8_t> bytes{piece.data, piece.size};
    const char* const direction = piece.kind == ARDENVUE_PIECE_PACKET    ? "\"received\""
                                  : piece.kind == ARDENVUE_PIECE_COMMAND ? "\"sent\""
                                                                         : "null";
    return R"({"time":)" + (has_times ? time_text(piece.time_ns) : "null") + R"(,"direction":)" + direction +
           R"(,"what":")" + packet_name(piece) + "\"," +
           (piece.kind == ARDENVUE_PIECE_DAMAGED ? no_fields : fields(bytes)) + R"(,"bytes":")" +
           formats::hex(bytes) + "\"}";
}

}  // namespace ctl
