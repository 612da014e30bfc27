// The frame ring (include/ardenvue.h) from the writer's side.
#pragma once

#include <cstdint>
#include <span>

// Opens or creates the frame ring and the transcoding buffer with their memory reserved, and sets each to its
// first state: byte 0 is 1, the rest 0. Removes the picture-size files of an earlier run. Returns 0, or 1
// when an object can't be opened, sized, reserved or mapped. Main thread, before any frame is
// published; called again it gives up the buffers of before.
int init_frame_buffers();

// Publishes one payload of live video, 1 to 65,535 bytes of H.264 byte stream, as the next frame of the ring;
// the picture size too, when the payload begins with an SPS that changes it. Clears the ring first when that
// is requested. One copy, no allocation. USB reader thread.
void publish_video_frame(std::span<const std::uint8_t> payload);
