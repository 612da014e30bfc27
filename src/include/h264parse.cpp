#include "include/h264parse.h"

#include <algorithm>
#include <array>

namespace {
// Profiles whose parameter sets carry chroma format, bit depths and scaling lists.
constexpr std::array<std::uint32_t, 8> high_profiles{100, 110, 122, 244, 44, 83, 86, 118};
constexpr std::uint32_t chroma_format_444 = 3;
constexpr int scaling_list_count = 8;

struct FrameCropping {
    std::uint32_t left = 0;
    std::uint32_t right = 0;
    std::uint32_t top = 0;
    std::uint32_t bottom = 0;
};
}  // namespace

void H264Parse::Open(const std::uint8_t* data, std::int32_t length) {
    m_nLength = length;
    m_nCurrentBit = 0;
    m_pData = data;
    m_bTruncated = false;
}

std::uint32_t H264Parse::ReadBit() {
    const std::int32_t byte = m_nCurrentBit / 8;
    if (byte >= m_nLength) {
        m_bTruncated = true;
        return 0;
    }
    const int shift = 7 - m_nCurrentBit % 8;
    ++m_nCurrentBit;
    return (m_pData[byte] >> shift) & 1U;
}

std::uint32_t H264Parse::ReadBits(int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) {
        value = value << 1 | ReadBit();
    }
    return value;
}

std::uint32_t H264Parse::ReadUE() {
    int zeros = 0;
    while (ReadBit() == 0 && zeros < 32) {
        ++zeros;
    }
    const auto base = static_cast<std::uint32_t>((std::uint64_t{1} << zeros) - 1);
    return ReadBits(zeros) + base;
}

std::int32_t H264Parse::ReadSE() {
    const std::uint32_t code = ReadUE();
    const std::uint32_t half = code / 2;
    return static_cast<std::int32_t>(code % 2 != 0 ? half + 1 : 0U - half);
}

void H264Parse::SkipScalingLists() {
    for (int list = 0; list < scaling_list_count; ++list) {
        if (ReadBit() == 0) {
            continue;
        }
        const int entries = list < 6 ? 16 : 64;
        std::uint32_t scale = 8;
        for (int entry = 0; entry < entries && scale != 0; ++entry) {
            scale = (scale + static_cast<std::uint32_t>(ReadSE())) % 256;
        }
    }
}

void H264Parse::SkipPicOrderCnt() {
    const std::uint32_t pic_order_cnt_type = ReadUE();
    if (pic_order_cnt_type == 0) {
        ReadUE();  // log2_max_pic_order_cnt_lsb_minus4
    } else if (pic_order_cnt_type == 1) {
        ReadBit();  // delta_pic_order_always_zero_flag
        ReadSE();   // offset_for_non_ref_pic
        ReadSE();   // offset_for_top_to_bottom_field
        const auto cycle_length = static_cast<std::int32_t>(ReadUE());
        for (std::int32_t i = 0; i < cycle_length && !m_bTruncated; ++i) {
            ReadSE();  // offset_for_ref_frame
        }
    }
}

bool H264Parse::ParseSps(const std::uint8_t* data, std::int32_t length, std::int32_t& width,
                         std::int32_t& height) {
    Open(data, length);
    const std::uint32_t profile_idc = ReadBits(8);
    ReadBits(8);  // constraint flags
    ReadBits(8);  // level_idc
    ReadUE();     // seq_parameter_set_id
    if (std::find(high_profiles.begin(), high_profiles.end(), profile_idc) != high_profiles.end()) {
        if (ReadUE() == chroma_format_444) {
            ReadBit();  // separate_colour_plane_flag
        }
        ReadUE();   // bit_depth_luma_minus8
        ReadUE();   // bit_depth_chroma_minus8
        ReadBit();  // qpprime_y_zero_transform_bypass_flag
        if (ReadBit() != 0) {
            SkipScalingLists();
        }
    }
    ReadUE();  // log2_max_frame_num_minus4
    SkipPicOrderCnt();
    ReadUE();   // max_num_ref_frames
    ReadBit();  // gaps_in_frame_num_value_allowed_flag
    const std::uint32_t width_in_mbs = ReadUE() + 1;
    const std::uint32_t height_in_map_units = ReadUE() + 1;
    const std::uint32_t frame_mbs_only = ReadBit();
    if (frame_mbs_only == 0) {
        ReadBit();  // mb_adaptive_frame_field_flag
    }
    ReadBit();  // direct_8x8_inference_flag
    FrameCropping crop;
    if (ReadBit() != 0) {
        crop.left = ReadUE();
        crop.right = ReadUE();
        crop.top = ReadUE();
        crop.bottom = ReadUE();
    }
    ReadBit();  // vui_parameters_present_flag
    if (m_bTruncated) {
        return false;
    }
    width = static_cast<std::int32_t>(16 * width_in_mbs - 2 * (crop.left + crop.right));
    height = static_cast<std::int32_t>(16 * (2 - frame_mbs_only) * height_in_map_units -
                                       2 * (crop.top + crop.bottom));
    return true;
}
