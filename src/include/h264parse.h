// The picture size out of an H.264 sequence parameter set: a bit reader and a walk over the syntax of ITU-T
// H.264, 7.3.2.1.1, as far as frame cropping.
#pragma once

#include <cstdint>

class H264Parse {
  public:
    // Reads the size in pixels from an SPS of length bytes (below 2^28) that starts with profile_idc, that is
    // after the NAL unit header, as it stands in the byte stream: emulation prevention bytes are not taken
    // out. One unit of cropping counts as two pixels whatever the chroma format and field coding. Returns
    // false, and leaves width and height as they were, when the data ends before the walk does; nothing
    // beyond the end is read. Sizes beyond 32 bits wrap. USB reader thread.
    bool ParseSps(const std::uint8_t* data, std::int32_t length, std::int32_t& width, std::int32_t& height);

    // The bit reader on its own: data must outlive its use.
    void Open(const std::uint8_t* data, std::int32_t length);
    // The next bit, or 0 when the data has ended.
    std::uint32_t ReadBit();
    // The next count bits (0 to 32), the first read being the most significant.
    std::uint32_t ReadBits(int count);
    // Exp-Golomb codes, ITU-T H.264, 9.1: unsigned and signed.
    std::uint32_t ReadUE();
    std::int32_t ReadSE();
    // True once a bit beyond the end has been asked for.
    bool Truncated() const { return m_bTruncated; }

  private:
    void SkipScalingLists();
    void SkipPicOrderCnt();

    std::int32_t m_nLength = 0;      // bytes
    std::int32_t m_nCurrentBit = 0;  // next bit, counted from the first byte's most significant
    const std::uint8_t* m_pData = nullptr;
    bool m_bTruncated = false;
};
