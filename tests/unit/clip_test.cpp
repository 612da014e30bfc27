#include "sim/remote/clip.h"

#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using sim::AccessUnit;
using sim::Bytes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Bytes joined(const std::vector<AccessUnit>& clip) {
    Bytes bytes;
    for (const AccessUnit& unit : clip) {
        for (const Bytes& payload : unit.payloads) {
            bytes.insert(bytes.end(), payload.begin(), payload.end());
        }
    }
    return bytes;
}

// Counts and first sizes as ffprobe gives them (-show_entries packet=size).
TEST(Clip, OfAnEncoderIsCutWhereAPlayerCutsIt) {
    const struct {
        const char* path;
        std::size_t pictures;
        std::vector<std::size_t> first_sizes;
    } clips[] = {
        {SIM_CLIPS "/1280x720.h264", 90, {12004, 3254, 2930}},
        {SIM_CLIPS "/1920x1080.h264", 90, {19280, 5051, 4472}},
    };
    for (const auto& test : clips) {
        std::ifstream file(test.path, std::ios::binary);
        const Bytes original{std::istreambuf_iterator<char>(file), {}};
        const std::vector<AccessUnit> clip = sim::load_clip(test.path);
        ASSERT_THAT(clip, SizeIs(test.pictures));
        EXPECT_EQ(joined(clip), original);
        for (std::size_t i = 0; i < clip.size(); ++i) {
            std::size_t size = 0;
            for (const Bytes& payload : clip[i].payloads) {
                EXPECT_LE(payload.size(), sim::max_video_payload);
                size += payload.size();
            }
            if (i < test.first_sizes.size()) {
                EXPECT_EQ(size, test.first_sizes[i]);
            }
            const Bytes& first = clip[i].payloads[0];
            EXPECT_THAT(Bytes(first.begin(), first.begin() + 4), ElementsAre(0, 0, 0, 1));
            EXPECT_EQ(first[4] & 0x1F, i % 30 == 0 ? 7 : 1) << "picture " << i;
        }
    }
}

// NAL units by their first bytes: 67 SPS, 68 PPS, 09 delimiter, 06 SEI, 65/41 slices; a slice whose next byte
// has its top bit set is a picture's first.
TEST(Clip, IsCutByTheRulesForAccessUnits) {
    using Payloads = std::vector<std::vector<Bytes>>;
    const Bytes sps{0, 0, 0, 1, 0x67, 1, 2};
    const Bytes idr{0, 0, 1, 0x65, 0x88, 3};
    const Bytes later_slice{0, 0, 1, 0x41, 0x40, 4};
    const Bytes picture{0, 0, 1, 0x41, 0x9A, 5};
    const Bytes delimiter{0, 0, 0, 1, 0x09, 0xF0};
    const auto join = [](std::initializer_list<Bytes> parts) {
        Bytes whole;
        for (const Bytes& part : parts) {
            whole.insert(whole.end(), part.begin(), part.end());
        }
        return whole;
    };
    const auto long_code = [](Bytes bytes) {
        bytes.insert(bytes.begin(), 0);
        return bytes;
    };
    const struct {
        const char* name;
        Bytes stream;
        Payloads expected;
    } cases[] = {
        {"one picture", join({sps, idr}), {{join({sps, idr})}}},
        {"a second slice stays", join({sps, idr, later_slice}), {{join({sps, idr, later_slice})}}},
        {"each picture by itself, with a long start code",
         join({sps, idr, picture, later_slice}),
         {{join({sps, idr})}, {join({long_code(picture), later_slice})}}},
        {"parameter sets open the next picture",
         join({sps, idr, sps, picture}),
         {{join({sps, idr})}, {join({sps, picture})}}},
        {"a parameter set behind a delimiter begins a payload",
         join({delimiter, sps, idr, delimiter, picture}),
         {{delimiter, join({sps, idr})}, {join({delimiter, picture})}}},
        {"no picture", join({sps}), {}},
        {"no start code", {1, 2, 3, 4}, {}},
        {"nothing", {}, {}},
    };
    for (const auto& test : cases) {
        Payloads payloads;
        for (const AccessUnit& unit : sim::cut_clip(test.stream)) {
            payloads.push_back(unit.payloads);
        }
        EXPECT_EQ(payloads, test.expected) << test.name;
    }
}

TEST(Clip, LargePicturesAreSplit) {
    Bytes stream(2 * sim::max_video_payload + 1, 0xAA);
    stream[0] = stream[1] = stream[2] = 0;
    stream[3] = 1;
    stream[4] = 0x65;
    const std::vector<AccessUnit> clip = sim::cut_clip(stream);
    ASSERT_THAT(clip, SizeIs(1));
    EXPECT_THAT(clip[0].payloads,
                ElementsAre(SizeIs(sim::max_video_payload), SizeIs(sim::max_video_payload), SizeIs(1)));
    EXPECT_EQ(joined(clip), stream);
}

TEST(Clip, ThatCannotBeReadIsEmpty) {
    EXPECT_THAT(sim::load_clip(SIM_CLIPS "/none.h264"), IsEmpty());
}

}  // namespace
