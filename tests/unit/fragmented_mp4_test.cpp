// Access units out of the pieces of live video, and the MP4 made of them.
#include "formats/fragmented_mp4.h"

#include <random>
#include <string>

#include <gmock/gmock.h>

#include "formats/access_units.h"
#include "formats/bytes.h"
#include "sim/remote/clip.h"

namespace {

using formats::AccessUnit;
using formats::AccessUnits;
using formats::Bytes;
using testing::ElementsAre;

constexpr std::int64_t second = 1'000'000'000;

// What came out: the bytes of each NAL unit, one string an access unit, "|" between units.
struct Taken {
    std::vector<std::string> units;
    AccessUnits assembler{[this](const AccessUnit& unit) {
        std::string text;
        for (const formats::NalUnit each : unit.units) {
            text.append(text.empty() ? "" : "|").append(each.begin(), each.end());
        }
        units.push_back(text);
    }};

    void add(std::string_view piece) {
        assembler.add({reinterpret_cast<const std::uint8_t*>(piece.data()), piece.size()}, 0);
    }
};

using namespace std::string_literals;
const std::string code = "\0\0\0\1"s;
const std::string first_slice = "e\x80";   // IDR, first_mb_in_slice 0
const std::string second_slice = "e\x40";  // and 1
const std::string next_picture = "A\x80";
const std::string delimiter = "\x09\x10";

TEST(AccessUnits, APictureIsHandedOnAtOnceAndALargeOneWhenItsRestHasCome) {
    Taken taken;
    taken.add(code + delimiter + code + first_slice + "one");
    EXPECT_THAT(taken.units, ElementsAre(delimiter + "|" + first_slice + "one"));
    taken.units.clear();

    const std::string large(48'000, 'x');
    taken.add(code + next_picture + large);
    taken.add("rest");
    EXPECT_THAT(taken.units, ElementsAre(next_picture + large + "rest"));
    taken.units.clear();
    taken.add(code + next_picture + large);
    taken.add(code + delimiter);
    EXPECT_THAT(taken.units, ElementsAre(next_picture + large));
    taken.add(code + next_picture + "two" + code + next_picture + "three");
    EXPECT_THAT(taken.units, ElementsAre(next_picture + large, delimiter + "|" + next_picture + "two",
                                         next_picture + "three"));
}

TEST(AccessUnits, SlicesThatComeOneByOneAreMissedOnceAndThenWaitedFor) {
    Taken taken;
    const std::string start = code + first_slice + "0123456789";
    const std::string rest = code + second_slice + "0123456789";
    for (int picture = 0; picture < 3; ++picture) {
        taken.add(start);
        taken.add(rest);
    }
    taken.assembler.flush();
    const std::string half = first_slice + "0123456789";
    const std::string whole = half + "|" + second_slice + "0123456789";
    EXPECT_THAT(taken.units, ElementsAre(half, whole, whole));
}

TEST(AccessUnits, WhateverBytesComeNothingIsReadOutsideAndLittleIsKept) {
    std::mt19937 random{1};
    std::size_t handed_on = 0;
    AccessUnits assembler{[&](const AccessUnit& unit) {
        handed_on += 1;
        ASSERT_FALSE(unit.units.empty());
        for (const formats::NalUnit each : unit.units) {
            ASSERT_FALSE(each.empty());
        }
    }};
    for (int i = 0; i < 20'000; ++i) {
        Bytes piece(random() % 40);
        for (std::uint8_t& byte : piece) {
            byte = static_cast<std::uint8_t>(random() % 4 != 0 ? random() % 2 : random());
        }
        assembler.add(piece, i);
    }
    EXPECT_GT(handed_on, 100U);
}

std::uint32_t number_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
           std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// The boxes that fill these bytes exactly, "moof(mfhd traf(tfhd tfdt trun))mdat"; "?" where they don't.
std::string boxes_of(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view containers = "moov trak mdia minf dinf stbl mvex moof traf";
    std::string text;
    while (!bytes.empty()) {
        const std::size_t size = bytes.size() < 8 ? 0 : number_at(bytes, 0);
        if (size < 8 || size > bytes.size()) {
            return text + "?";
        }
        const std::string type{bytes.begin() + 4, bytes.begin() + 8};
        text += type;
        if (containers.find(type) != std::string_view::npos) {
            text += "(" + boxes_of(bytes.subspan(8, size - 8)) + ")";
        }
        bytes = bytes.subspan(size);
        text += bytes.empty() ? "" : " ";
    }
    return text;
}

TEST(FragmentedMp4, IsAHeaderAndAFragmentAPictureWithTimesThatGrow) {
    formats::FragmentedMp4 mp4;
    std::vector<std::uint32_t> times;
    std::vector<std::uint32_t> durations;
    std::string header;
    AccessUnits assembler{[&](const AccessUnit& unit) {
        if (header.empty()) {
            ASSERT_TRUE(unit.is_key && mp4.start(unit));
            header = boxes_of(mp4.header());
        }
        ASSERT_FALSE(mp4.has_changed(unit));
        const formats::FragmentedMp4::Bytes fragment = mp4.fragment(unit);
        ASSERT_EQ(boxes_of(fragment), "moof(mfhd traf(tfhd tfdt trun)) mdat");
        constexpr std::size_t tfdt_low_half = 8 + 16 + 8 + 16 + 16;
        constexpr std::size_t trun_duration = tfdt_low_half + 4 + 20;
        times.push_back(number_at(fragment, tfdt_low_half));
        durations.push_back(number_at(fragment, trun_duration));
    }};
    std::int64_t time = 1'000 * second;
    const std::vector<sim::AccessUnit> clip = sim::load_clip(SIM_CLIPS "/1280x720.h264");
    for (const sim::AccessUnit& unit : clip) {
        for (const Bytes& payload : unit.payloads) {
            assembler.add(payload, time);
        }
        time += times.size() % 3 == 0 ? 0 : second / 50;  // two of three come at the same moment
    }
    assembler.flush();
    EXPECT_EQ(
        header,
        "ftyp moov(mvhd trak(tkhd mdia(mdhd hdlr minf(vmhd dinf(dref) stbl(stsd stts stsc stco stsz)))) "
        "mvex(trex))");
    EXPECT_EQ(times.size(), clip.size());
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end(), std::less_equal<>{}));
    EXPECT_NEAR(times.back(), 106'200, 9'000);
    for (std::size_t i = 0; i + 1 < times.size(); ++i) {
        EXPECT_LE(times[i + 1] - times[i], 2 * durations[i]) << "a gap, as browsers see it";
        EXPECT_LE(durations[i], 9'000U);
    }
    EXPECT_EQ(mp4.codec(), "avc1.4D401F");
    EXPECT_EQ(mp4.size(), (formats::PictureSize{1280, 720}));

    const Bytes no_pps{0x67, 0x42, 0, 0x1F};
    const formats::NalUnit alone{no_pps};
    EXPECT_FALSE(mp4.start({{&alone, 1}, true, 0}));
    EXPECT_EQ(mp4.size().width, 1280) << "what can't be used changes nothing";
    EXPECT_TRUE(mp4.has_changed({{&alone, 1}, true, 0}));
}

}  // namespace
