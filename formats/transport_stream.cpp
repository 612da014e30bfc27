#include "formats/transport_stream.h"

#include <algorithm>
#include <array>

namespace formats {
namespace {

constexpr std::size_t packet_size = 188;
constexpr std::uint8_t sync_byte = 0x47;
constexpr std::uint16_t association_pid = 0;
constexpr std::uint16_t map_pid = 0x1000;
constexpr std::uint16_t video_pid = 0x0100;
// Presentation lies behind the clock by so much, which a receiver has to decode.
constexpr std::uint64_t lead = MediaTime::timescale / 10;

// 2.4.4.3 and 2.4.4.8, without their sums: one program, whose map has one stream, H.264.
constexpr std::array<std::uint8_t, 12> association{0x00, 0xB0, 13,   0x00, 0x01, 0xC1,
                                                   0x00, 0x00, 0x00, 0x01, 0xF0, 0x00};
constexpr std::array<std::uint8_t, 17> program_map{0x02, 0xB0, 18,   0x00, 0x01, 0xC1, 0x00, 0x00, 0xE1,
                                                   0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x00, 0xF0, 0x00};

// Annex A: CRC-32 with the polynomial 0x04C11DB7, most significant bit first.
std::uint32_t sum_of(std::span<const std::uint8_t> section) {
    std::uint32_t sum = 0xFFFFFFFF;
    for (const std::uint8_t byte : section) {
        sum ^= std::uint32_t{byte} << 24;
        for (int bit = 0; bit < 8; ++bit) {
            sum = (sum << 1) ^ ((sum & 0x80000000) != 0 ? 0x04C11DB7U : 0U);
        }
    }
    return sum;
}

using Buffer = std::vector<std::uint8_t>;

void put_header(Buffer& out, std::uint16_t pid, bool begins, bool has_adaptation, std::uint8_t& counter) {
    out.push_back(sync_byte);
    out.push_back(static_cast<std::uint8_t>((begins ? 0x40 : 0) | pid >> 8));
    out.push_back(static_cast<std::uint8_t>(pid));
    out.push_back(static_cast<std::uint8_t>((has_adaptation ? 0x30 : 0x10) | counter));
    counter = (counter + 1) & 0x0F;
}

// 33 bits with their marker bits (2.4.3.7).
void put_timestamp(Buffer& out, std::uint64_t time) {
    out.push_back(static_cast<std::uint8_t>(0x21 | (time >> 29 & 0x0E)));
    out.push_back(static_cast<std::uint8_t>(time >> 22));
    out.push_back(static_cast<std::uint8_t>(0x01 | (time >> 14 & 0xFE)));
    out.push_back(static_cast<std::uint8_t>(time >> 7));
    out.push_back(static_cast<std::uint8_t>(0x01 | (time << 1 & 0xFE)));
}

}  // namespace

void TransportStream::put_table(std::uint16_t pid, std::span<const std::uint8_t> section) {
    put_header(bytes_, pid, true, false, counters_[pid == association_pid ? 0 : 1]);
    bytes_.push_back(0);  // the section begins at once
    bytes_.insert(bytes_.end(), section.begin(), section.end());
    const std::uint32_t sum = sum_of(section);
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes_.push_back(static_cast<std::uint8_t>(sum >> shift));
    }
    bytes_.resize((bytes_.size() + packet_size - 1) / packet_size * packet_size, 0xFF);
}

void TransportStream::put_picture(const AccessUnit& unit, std::uint64_t time) {
    constexpr std::array<std::uint8_t, 9> pes_header{0, 0,    1,    0xE0, 0,
                                                     0, 0x84, 0x80, 5};  // of any length, with a PTS
    constexpr std::array<std::uint8_t, 4> start_code{0, 0, 0, 1};
    constexpr std::array<std::uint8_t, 2> delimiter{0x09, 0xF0};  // which 13818-1, 2.14.1 asks for
    picture_.assign(pes_header.begin(), pes_header.end());
    put_timestamp(picture_, time + lead);
    const auto put_unit = [&](NalUnit each) {
        picture_.insert(picture_.end(), start_code.begin(), start_code.end());
        picture_.insert(picture_.end(), each.begin(), each.end());
    };
    if (type_of(unit.units.front()) != NalType::delimiter) {
        put_unit(delimiter);
    }
    std::for_each(unit.units.begin(), unit.units.end(), put_unit);

    for (std::size_t at = 0; at < picture_.size();) {
        constexpr std::size_t room = packet_size - 4;
        constexpr std::size_t clock_size = 8;  // an adaptation field with a clock reference
        const bool first = at == 0;
        const std::size_t left = picture_.size() - at;
        const std::size_t size = std::min(left, room - (first ? clock_size : 0));
        const std::size_t adaptation = room - size;
        put_header(bytes_, video_pid, first, adaptation > 0, counters_[2]);
        if (adaptation > 0) {
            const std::size_t end = bytes_.size() + adaptation;
            bytes_.push_back(static_cast<std::uint8_t>(adaptation - 1));
            if (first) {
                bytes_.push_back(unit.is_key ? 0x50 : 0x10);  // random access, clock reference
                for (int shift = 25; shift >= 1; shift -= 8) {
                    bytes_.push_back(static_cast<std::uint8_t>(time >> shift));
                }
                bytes_.push_back(static_cast<std::uint8_t>((time & 1) << 7 | 0x7E));
                bytes_.push_back(0);
            } else if (adaptation > 1) {
                bytes_.push_back(0);
            }
            bytes_.resize(end, 0xFF);
        }
        const auto begin = picture_.begin() + static_cast<std::ptrdiff_t>(at);
        bytes_.insert(bytes_.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
        at += size;
    }
}

std::span<const std::uint8_t> TransportStream::packets(const AccessUnit& unit) {
    bytes_.clear();
    if (unit.is_key) {
        put_table(association_pid, association);
        put_table(map_pid, program_map);
    }
    put_picture(unit, static_cast<std::uint64_t>(time_.next(unit.time_ns)));
    return bytes_;
}

}  // namespace formats
