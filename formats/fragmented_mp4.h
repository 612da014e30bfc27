// Writes H.264 video as fragmented MP4 (ISO/IEC 14496-12 and 14496-15): a header, and then a fragment a
// picture, so that a file plays up to wherever it was cut off, and a pipe shows each picture as it comes. The
// times are those of arrival, whatever the stream itself says of its rate. No input or output of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "formats/access_units.h"
#include "formats/media_time.h"
#include "formats/picture_size.h"

namespace formats {

class FragmentedMp4 {
  public:
    using Bytes = std::span<const std::uint8_t>;  // valid until the next call

    // Takes the parameter sets of a key access unit for the header, and the pictures' size from them. False,
    // and all is as it was, when there are none or no decoder could use them. Called again where they change:
    // the fragments count on, in time too.
    bool start(const AccessUnit& key);

    // Whether the access unit brings other parameter sets than the header's: then start() anew.
    bool has_changed(const AccessUnit& unit) const;

    // ftyp and moov. Empty before start().
    Bytes header();

    // moof and mdat of one access unit; parameter sets stay in, delimiters don't. Its time counts from the
    // first fragment's, and is at least one unit later than that of the one before. How long it is shown is
    // only known when the next one comes: meant is as long as the longest of late. Empty before start().
    Bytes fragment(const AccessUnit& unit);

    // "avc1.64001F" (RFC 6381).
    std::string codec() const;
    PictureSize size() const { return size_; }

  private:
    std::vector<std::uint8_t> sps_;
    std::vector<std::uint8_t> pps_;
    PictureSize size_{};
    std::uint32_t sequence_number_ = 0;
    MediaTime time_;
    std::int64_t duration_ = MediaTime::timescale / 15;  // of a picture, in units
    std::vector<std::uint8_t> bytes_;
};

}  // namespace formats
