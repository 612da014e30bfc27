// What the service shares with other processes on the board: the shared-memory records, the datagrams, the
// names and the ports. A main application includes this header alone; C++17 is enough.
//
// All multi-byte fields are little-endian, as every supported board is. Records in shared memory have no
// lock: the order in which the fields of the frame ring are published, given there, is what readers rely on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ardenvue {

// ---- Frame ring: POSIX shared memory, one payload of live H.264 video (byte stream with start codes) a slot
// ----

constexpr const char* frame_ring_name = "ardenvue_framebuffer";
constexpr std::size_t frame_slot_count = 200;
constexpr std::size_t frame_slot_capacity = 300'000;

// One slot. Slots are 300,018 bytes, so a slot is aligned to two bytes only: the length stands as two halves.
struct FrameSlot {
    std::uint16_t length_low;   // number of payload bytes, 1 to 65,535
    std::uint16_t length_high;  // always 0: a payload is shorter than 65,536 bytes
    std::uint16_t frame_number;
    std::uint16_t reserved;  // 0
    std::uint8_t flags[10];  // 0x01 each, whenever the slot is written
    std::uint8_t payload[frame_slot_capacity];
};
static_assert(sizeof(FrameSlot) == 300'018 && alignof(FrameSlot) == 2);
static_assert(offsetof(FrameSlot, frame_number) == 4 && offsetof(FrameSlot, flags) == 8);
static_assert(offsetof(FrameSlot, payload) == 18);

// The writer stores payload, slot header, next_slot and newest_frame_number in this order, each with release
// semantics. So once newest_frame_number is seen (with an acquire load), slot (next_slot + 199) mod 200 holds
// that frame completely. Frame numbers are consecutive modulo 65,536: a gap is the number of frames missed.
struct FrameRing {
    std::uint16_t clear_request;  // set it to 1 to have the whole ring zeroed before the next frame
    std::uint16_t newest_frame_number;
    std::uint16_t next_slot;  // 0 to 199, the slot that the next frame goes to
    std::uint8_t reserved[18];
    FrameSlot slots[frame_slot_count];
};
static_assert(sizeof(FrameRing) == 60'003'624);
static_assert(offsetof(FrameRing, newest_frame_number) == 2 && offsetof(FrameRing, next_slot) == 4);
static_assert(offsetof(FrameRing, slots) == 24);

// Created and initialised like the frame ring (byte 0 is 1, the rest 0), then left to the main application.
constexpr const char* transcoding_buffer_name = "ardenvue_framebuffer_transcoding";
constexpr std::size_t transcoding_buffer_size = 13'003'624;

// ---- Gimbal attitude: POSIX shared memory, written at each attitude push, in field order ----

constexpr const char* camera_state_name = "/shared_camstate";

struct CameraState {
    std::int16_t attitude[3];  // the push's third value, its first, its second negated
};
static_assert(sizeof(CameraState) == 6);

// ---- Raw remote-controller inputs: POSIX shared memory, written by another process on the board ----

constexpr const char* rc_raw_state_name = "/shared_rc_raw";

struct RcRawState {
    std::uint8_t writer_private_1[1056];
    double motion_input[3];  // 0 means no motion; board byte order
    std::uint8_t writer_private_2[424];
};
static_assert(sizeof(RcRawState) == 1504 && offsetof(RcRawState, motion_input) == 1056);
static_assert(sizeof(double) == 8);

// ---- Datagrams to the main application ----

// First byte of the status line; its text of comma-terminated key=value pairs follows.
constexpr std::uint8_t status_line_type = 0x07;
// First byte of the two records below; the second says which.
constexpr std::uint8_t record_type = 6;
constexpr std::uint8_t gimbal_focus_subtype = 0;
constexpr std::uint8_t histogram_subtype = 1;

// Bytes only, so that the fields stand where the datagram has them; two-byte fields are low byte first.
struct GimbalFocusRecord {
    std::uint8_t type;     // record_type
    std::uint8_t subtype;  // gimbal_focus_subtype
    std::uint8_t orientation_lock;
    std::uint8_t attitude[3][2];  // signed, the values of CameraState
    std::uint8_t camera_flags_a;  // recording while its bits 6 and 7 hold 2
    std::uint8_t camera_flags_b;
    std::uint8_t camera_flags_c;
    std::uint8_t focus_valid;
    std::uint8_t focus_mode;
    std::uint8_t reserved_1;
    std::uint8_t focus_max[2];
    std::uint8_t focus_position[2];
    std::uint8_t focus_point_x[2];  // x 1000
    std::uint8_t focus_point_y[2];
    std::uint8_t focus_aux_1;
    std::uint8_t focus_aux_2;
    std::uint8_t reserved_2[3];
};
static_assert(sizeof(GimbalFocusRecord) == 28 && alignof(GimbalFocusRecord) == 1);
static_assert(offsetof(GimbalFocusRecord, attitude) == 3 && offsetof(GimbalFocusRecord, camera_flags_a) == 9);
static_assert(offsetof(GimbalFocusRecord, focus_valid) == 12 && offsetof(GimbalFocusRecord, focus_max) == 15);
static_assert(offsetof(GimbalFocusRecord, focus_point_x) == 19 &&
              offsetof(GimbalFocusRecord, focus_aux_1) == 23);

struct HistogramRecord {
    std::uint8_t type;     // record_type
    std::uint8_t subtype;  // histogram_subtype
    std::uint8_t histogram[64];
};
static_assert(sizeof(HistogramRecord) == 66 && alignof(HistogramRecord) == 1);

// ---- Ports and files ----

constexpr std::uint16_t default_status_port = 5000;    // UDP, status line and records
constexpr std::uint16_t recording_notice_port = 5255;  // UDP on 127.0.0.1, "rec_active" and "rec_inactive"
constexpr std::uint16_t relay_port = 6000;             // TCP, the raw stream both ways
constexpr const char* board_supported_path = "/run/ardenvue/board_supported";
constexpr const char* video_width_path = "/run/ardenvue/video_width";
constexpr const char* video_height_path = "/run/ardenvue/video_height";

}  // namespace ardenvue
