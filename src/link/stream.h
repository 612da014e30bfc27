// The remote controller's byte stream: stream frames, each a sync pattern and a length, that carry either
// live video or runs of link packets. Little-endian.
//
//   0  0x55 0xCC, type ("J" video, "I" link packets), 0x57
//   4  number of payload bytes, 16 bits
//   6  two bytes of no known meaning
//   8  payload
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Cuts every complete stream frame off the front of the reassembly buffer, hands each to its consumer
// (publish_video_frame, or scan_camera_packets) and moves what is left to the buffer's start; fill is the
// number of valid bytes before and after. A frame counts as complete once a byte beyond it is there. Bytes
// before a sync pattern go with the frame that follows. Without any sync pattern the buffer's first bytes are
// taken for a header all the same; what it claims to head is reported and dropped once it is complete.
// Returns 0 always. USB reader thread.
int parse_usb_stream(std::uint8_t* buffer, std::uint32_t& fill);

// The same, and it looks at no byte for a sync pattern twice: searched is the offset up to which there is
// none, before and after. It belongs to these bytes as fill does: 0 with a buffer that begins anew; whoever
// adds bytes leaves it alone. More than fill (the bytes were dropped) counts as fill.
int parse_usb_stream(std::uint8_t* buffer, std::uint32_t& fill, std::uint32_t& searched);

// Finds the verified link packets in the payload of an "I" frame and hands each to decode_camera_packet, in
// order. What is no valid packet is skipped byte by byte, without a word. USB reader thread.
void scan_camera_packets(std::span<const std::uint8_t> payload);
