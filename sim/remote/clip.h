// A raw H.264 clip cut into the payloads in which the remote controller sends it.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "formats/bytes.h"

namespace sim {

using formats::Bytes;

// The largest payload that is sent. A stream frame could hold 65,535 bytes; the remote controller stays well
// below, and below what the device can reassemble in its 50,000 bytes.
constexpr std::size_t max_video_payload = 48'000;

struct AccessUnit {
    std::vector<Bytes> payloads;
};

// Cuts an H.264 byte stream (ITU-T H.264, annex B) into access units (7.4.1.2.3) and these into payloads. The
// first payload of an access unit begins with a four-byte start code; a sequence parameter set that stands
// behind other NAL units begins a payload of its own, so that the picture size is always seen; what is larger
// than max_video_payload is split. Otherwise the bytes are those of the clip. Empty when there is no slice in
// it.
std::vector<AccessUnit> cut_clip(std::span<const std::uint8_t> stream);

// The clip of a file, cut; empty when the file can't be read or holds no picture.
std::vector<AccessUnit> load_clip(const std::string& path);

}  // namespace sim
