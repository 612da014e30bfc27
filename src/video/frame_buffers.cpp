#include "video/frame_buffers.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "ardenvue.h"
#include "platform/relaxed.h"
#include "platform/shared_memory.h"
#include "video/picture_size.h"

using ardenvue::FrameRing;
using ardenvue::FrameSlot;

namespace {
FrameRing* ring = nullptr;
void* transcoding = nullptr;
std::uint16_t frame_counter = 0;

// Null when the object can't be had.
void* open_buffer(const char* name, std::size_t size) {
    void* buffer = map_shared_memory(name, size);
    if (buffer != nullptr) {
        std::memset(buffer, 0, size);
        *static_cast<std::uint8_t*>(buffer) = 1;  // the low byte of the clear request
    }
    return buffer;
}

void clear_if_requested() {
    if (load_relaxed(ring->clear_request) != 0) {
        // The header first: who copies a slot meanwhile and finds zeros in it finds the header cleared, too.
        std::memset(static_cast<void*>(ring), 0, offsetof(FrameRing, slots));
        fence_release();
        std::memset(static_cast<void*>(ring->slots), 0, sizeof ring->slots);
        std::fputs("Clear frame shared memory\n", stderr);
    }
}

void fill_slot(FrameSlot& slot, std::span<const std::uint8_t> payload) {
    // A release store keeps what is written before it from being seen later, not what is written after it
    // from being seen earlier: without this fence a processor that reorders may show the new payload of a
    // slot while the newest frame number, by which a reader judges its copy of the slot, is still two frames
    // old.
    fence_release();
    std::memcpy(slot.payload, payload.data(), payload.size());
    store_release(slot.length_low, static_cast<std::uint16_t>(payload.size()));
    store_release(slot.length_high, static_cast<std::uint16_t>(payload.size() >> 16));
    store_release(slot.frame_number, frame_counter);
    store_release(slot.reserved, 0);
    for (std::uint8_t& flag : slot.flags) {
        store_release(flag, 1);
    }
}
}  // namespace

int init_frame_buffers() {
    unmap_shared_memory(std::exchange(ring, nullptr));
    unmap_shared_memory(std::exchange(transcoding, nullptr));
    remove_picture_size_files();
    std::fprintf(stderr, "Init frame buffer %d bytes\n", static_cast<int>(sizeof(FrameRing)));
    frame_counter = 0;
    ring = static_cast<FrameRing*>(open_buffer(ardenvue::frame_ring_name, sizeof(FrameRing)));
    if (ring == nullptr) {
        return 1;
    }
    std::fprintf(stderr, "Init frame buffer for transcoding %d bytes\n",
                 static_cast<int>(ardenvue::transcoding_buffer_size));
    transcoding = open_buffer(ardenvue::transcoding_buffer_name, ardenvue::transcoding_buffer_size);
    return transcoding != nullptr ? 0 : 1;
}

void publish_video_frame(std::span<const std::uint8_t> payload) {
    assert(ring != nullptr && !payload.empty() && payload.size() <= ardenvue::frame_slot_capacity);
    publish_picture_size(payload);
    clear_if_requested();
    std::uint16_t index = load_relaxed(ring->next_slot);
    if (index >= ardenvue::frame_slot_count) {
        index = 0;
    }
    fill_slot(ring->slots[index], payload);
    store_release(ring->next_slot, static_cast<std::uint16_t>((index + 1) % ardenvue::frame_slot_count));
    store_release(ring->newest_frame_number, frame_counter);
    ++frame_counter;
}
