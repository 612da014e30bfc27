// The size of the live video's picture, for the main application, in two files of decimal digits.
#pragma once

#include <cstdint>
#include <span>

// Removes both files: until the first SPS has been seen there are none. Main thread, at start-up.
void remove_picture_size_files();

// Looks for an SPS at the very start of a video payload (four-byte start code, ITU-T H.264 Annex B) and, when
// it gives another size than the last one did, reports it and rewrites both files. An SPS that can't be read
// changes nothing. USB reader thread.
void publish_picture_size(std::span<const std::uint8_t> payload);
