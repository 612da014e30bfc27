#include "formats/fragmented_mp4.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace formats {
namespace {

using Buffer = std::vector<std::uint8_t>;

void put(Buffer& out, std::uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        out.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

void put(Buffer& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

void put(Buffer& out, std::span<const std::uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void put_zeros(Buffer& out, std::size_t count) {
    out.insert(out.end(), count, 0);
}

// A box: its size goes before its contents, and is known behind them (14496-12, 4.2).
class Box {
  public:
    Box(Buffer& out, std::string_view type) : out_{out}, begin_{out.size()} {
        put(out_, 0, 4);
        put(out_, type);
    }
    // A full box.
    Box(Buffer& out, std::string_view type, std::uint32_t version, std::uint32_t flags) : Box{out, type} {
        put(out_, version << 24 | flags, 4);
    }
    Box(const Box&) = delete;
    Box& operator=(const Box&) = delete;
    ~Box() { set_size(out_.size() - begin_); }

  private:
    void set_size(std::size_t size) {
        for (std::size_t i = 0; i < 4; ++i) {
            out_[begin_ + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
        }
    }

    Buffer& out_;
    std::size_t begin_;
};

constexpr std::uint32_t track = 1;

void put_unity_matrix(Buffer& out) {
    for (const std::uint32_t value : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U}) {
        put(out, value, 4);
    }
}

void put_movie_header(Buffer& out) {
    const Box mvhd{out, "mvhd", 0, 0};
    put_zeros(out, 8);  // times of creation and change: none
    put(out, MediaTime::timescale, 4);
    put_zeros(out, 4);  // duration: that of the fragments
    put(out, 0x00010000, 4);
    put(out, 0x0100, 2);
    put_zeros(out, 10);
    put_unity_matrix(out);
    put_zeros(out, 24);
    put(out, track + 1, 4);
}

void put_track_header(Buffer& out, PictureSize size) {
    constexpr std::uint32_t enabled_in_movie = 3;
    const Box tkhd{out, "tkhd", 0, enabled_in_movie};
    put_zeros(out, 8);
    put(out, track, 4);
    put_zeros(out, 4 + 4 + 8 + 8);  // duration, layer, group, volume
    put_unity_matrix(out);
    put(out, static_cast<std::uint32_t>(size.width) << 16, 4);
    put(out, static_cast<std::uint32_t>(size.height) << 16, 4);
}

// 14496-15, 5.3.3.1: the decoder's configuration, with lengths of four bytes before NAL units.
void put_configuration(Buffer& out, const Buffer& sps, const Buffer& pps) {
    const Box configuration{out, "avcC"};
    put(out, 1, 1);
    put(out, std::span{sps}.subspan(1, 3));  // profile, its constraints, level
    put(out, 0xFC | 3, 1);
    put(out, 0xE0 | 1, 1);
    put(out, sps.size(), 2);
    put(out, sps);
    put(out, 1, 1);
    put(out, pps.size(), 2);
    put(out, pps);
    const std::uint8_t profile = sps[1];
    if (profile == 100 || profile == 110 || profile == 122 || profile == 144) {
        put(out, 0xFC | 1, 1);  // 4:2:0
        put(out, 0xF8, 1);      // 8 bits
        put(out, 0xF8, 1);
        put(out, 0, 1);
    }
}

void put_sample_table(Buffer& out, const Buffer& sps, const Buffer& pps, PictureSize size) {
    const Box stbl{out, "stbl"};
    {
        const Box stsd{out, "stsd", 0, 0};
        put(out, 1, 4);
        const Box avc1{out, "avc1"};
        put_zeros(out, 6);
        put(out, 1, 2);
        put_zeros(out, 16);
        put(out, static_cast<std::uint32_t>(size.width), 2);
        put(out, static_cast<std::uint32_t>(size.height), 2);
        put(out, 0x00480000, 4);  // 72 dots an inch
        put(out, 0x00480000, 4);
        put_zeros(out, 4);
        put(out, 1, 2);
        put_zeros(out, 32);  // no name of a compressor
        put(out, 0x0018, 2);
        put(out, 0xFFFF, 2);
        put_configuration(out, sps, pps);
    }
    // The samples are in the fragments.
    for (const std::string_view type : {"stts", "stsc", "stco"}) {
        const Box table{out, type, 0, 0};
        put_zeros(out, 4);
    }
    const Box stsz{out, "stsz", 0, 0};
    put_zeros(out, 8);
}

void put_media(Buffer& out, const Buffer& sps, const Buffer& pps, PictureSize size) {
    const Box mdia{out, "mdia"};
    {
        const Box mdhd{out, "mdhd", 0, 0};
        put_zeros(out, 8);
        put(out, MediaTime::timescale, 4);
        put_zeros(out, 4);
        put(out, 0x55C4, 2);  // language: undetermined
        put_zeros(out, 2);
    }
    {
        const Box hdlr{out, "hdlr", 0, 0};
        put_zeros(out, 4);
        put(out, "vide");
        put_zeros(out, 12 + 1);
    }
    const Box minf{out, "minf"};
    {
        const Box vmhd{out, "vmhd", 0, 1};
        put_zeros(out, 8);
    }
    {
        const Box dinf{out, "dinf"};
        const Box dref{out, "dref", 0, 0};
        put(out, 1, 4);
        const Box in_this_file{out, "url ", 0, 1};
    }
    put_sample_table(out, sps, pps, size);
}

NalUnit find(const AccessUnit& unit, NalType type) {
    const auto found = std::find_if(unit.units.begin(), unit.units.end(),
                                    [=](NalUnit each) { return type_of(each) == type; });
    return found == unit.units.end() ? NalUnit{} : *found;
}

}  // namespace

bool FragmentedMp4::start(const AccessUnit& key) {
    constexpr std::size_t longest = 0xFFFF;
    const NalUnit sps = find(key, NalType::sequence_parameters);
    const NalUnit pps = find(key, NalType::picture_parameters);
    if (sps.size() < 4 || pps.empty() || sps.size() > longest || pps.size() > longest) {
        return false;
    }
    const std::optional<PictureSize> size = picture_size(sps);
    if (!size) {
        return false;
    }
    sps_.assign(sps.begin(), sps.end());
    pps_.assign(pps.begin(), pps.end());
    size_ = *size;
    return true;
}

bool FragmentedMp4::has_changed(const AccessUnit& unit) const {
    const auto differs = [&](NalType type, const Buffer& known) {
        const NalUnit found = find(unit, type);
        return !found.empty() && !std::equal(found.begin(), found.end(), known.begin(), known.end());
    };
    return differs(NalType::sequence_parameters, sps_) || differs(NalType::picture_parameters, pps_);
}

FragmentedMp4::Bytes FragmentedMp4::header() {
    bytes_.clear();
    if (sps_.empty()) {
        return bytes_;
    }
    {
        const Box ftyp{bytes_, "ftyp"};
        put(bytes_, "iso5");
        put(bytes_, 512, 4);
        put(bytes_, "iso5iso6avc1mp41");
    }
    const Box moov{bytes_, "moov"};
    put_movie_header(bytes_);
    {
        const Box trak{bytes_, "trak"};
        put_track_header(bytes_, size_);
        put_media(bytes_, sps_, pps_, size_);
    }
    const Box mvex{bytes_, "mvex"};
    const Box trex{bytes_, "trex", 0, 0};
    put(bytes_, track, 4);
    put(bytes_, 1, 4);
    put_zeros(bytes_, 12);
    return bytes_;
}

FragmentedMp4::Bytes FragmentedMp4::fragment(const AccessUnit& unit) {
    bytes_.clear();
    if (sps_.empty()) {
        return bytes_;
    }
    const std::int64_t before = time_.last();
    const std::int64_t time = time_.next(unit.time_ns);
    // The longest of late, not that before it: a browser that finds the next picture more than two of these
    // away takes it for a gap, and shows nothing until the next key picture (Media Source Extensions, 3.5.8).
    // Longer is a gap.
    constexpr std::int64_t longest = MediaTime::timescale / 10;
    const std::int64_t since_last = before < 0 ? 0 : std::min(time - before, longest);
    duration_ = std::max(since_last, duration_ - since_last / 16);
    std::size_t size = 0;
    for (const NalUnit each : unit.units) {
        size += type_of(each) == NalType::delimiter ? 0 : 4 + each.size();
    }
    constexpr std::uint32_t default_base_is_moof = 0x020000;
    constexpr std::uint32_t offset_duration_size_flags = 0x000701;
    constexpr std::uint32_t key_sample = 0x02000000;    // depends on no other
    constexpr std::uint32_t other_sample = 0x01010000;  // depends on others, no sync sample
    constexpr std::size_t moof_size = 8 + 16 + 8 + 16 + 20 + 32;
    {
        const Box moof{bytes_, "moof"};
        {
            const Box mfhd{bytes_, "mfhd", 0, 0};
            put(bytes_, ++sequence_number_, 4);
        }
        const Box traf{bytes_, "traf"};
        {
            const Box tfhd{bytes_, "tfhd", 0, default_base_is_moof};
            put(bytes_, track, 4);
        }
        {
            const Box tfdt{bytes_, "tfdt", 1, 0};
            put(bytes_, static_cast<std::uint64_t>(time), 8);
        }
        const Box trun{bytes_, "trun", 0, offset_duration_size_flags};
        put(bytes_, 1, 4);
        put(bytes_, moof_size + 8, 4);
        put(bytes_, static_cast<std::uint64_t>(duration_), 4);
        put(bytes_, size, 4);
        put(bytes_, unit.is_key ? key_sample : other_sample, 4);
    }
    const Box mdat{bytes_, "mdat"};
    for (const NalUnit each : unit.units) {
        if (type_of(each) != NalType::delimiter) {
            put(bytes_, each.size(), 4);
            put(bytes_, each);
        }
    }
    return bytes_;
}

std::string FragmentedMp4::codec() const {
    if (sps_.empty()) {
        return "";
    }
    char text[12];
    std::snprintf(text, sizeof text, "avc1.%02X%02X%02X", sps_[1], sps_[2], sps_[3]);
    return text;
}

}  // namespace formats
