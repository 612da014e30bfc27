// What the service shares with other processes on the board: the shared-memory records, the datagrams, the
// names and the ports. A main application includes this header alone: C11, or C++17 and later. C++ has
// everything in the namespace ardenvue as well, without the prefix: ardenvue::FrameRing,
// ardenvue::frame_slot_count.
//
// All multi-byte fields are little-endian, as every supported board is. Records in shared memory have no
// lock: the order in which the fields of the frame ring are published, given there, is what readers rely on.
#ifndef ARDENVUE_H
#define ARDENVUE_H

#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#else
#include <stddef.h>
#include <stdint.h>
#endif

#ifdef __cplusplus
#define ARDENVUE_ASSERT_LAYOUT(condition) static_assert(condition, #condition)
#else
#define ARDENVUE_ASSERT_LAYOUT(condition) _Static_assert(condition, #condition)
#endif
#define ARDENVUE_ASSERT_OFFSET(record, field, offset) \
    ARDENVUE_ASSERT_LAYOUT(offsetof(struct record, field) == (offset))

// ---- Frame ring: POSIX shared memory, one payload of live H.264 video (byte stream with start codes) a slot
// ----

#define ARDENVUE_FRAME_RING_NAME "ardenvue_framebuffer"
#define ARDENVUE_FRAME_SLOT_COUNT 200
#define ARDENVUE_FRAME_SLOT_CAPACITY 300000

// One slot. Slots are 300,018 bytes, so a slot is aligned to two bytes only: the length stands as two halves.
struct ArdenvueFrameSlot {
    uint16_t length_low;   // number of payload bytes, 1 to 65,535
    uint16_t length_high;  // always 0: a payload is shorter than 65,536 bytes
    uint16_t frame_number;
    uint16_t reserved;  // 0
    uint8_t flags[10];  // 0x01 each, whenever the slot is written
    uint8_t payload[ARDENVUE_FRAME_SLOT_CAPACITY];
};
ARDENVUE_ASSERT_LAYOUT(sizeof(struct ArdenvueFrameSlot) == 300018);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameSlot, frame_number, 4);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameSlot, flags, 8);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameSlot, payload, 18);

// The writer stores payload, slot header, next_slot and newest_frame_number in this order, each with release
// semantics. So once newest_frame_number is seen (with an acquire load), that frame is complete. It is in
// slot (next_slot + 199) mod 200, unless the writer has just moved on: next_slot is stored first, so the slot
// before it may already hold the frame after the newest number. Take the frame number from the slot itself.
// Frame numbers are consecutive modulo 65,536: a gap is the number of frames missed.
struct ArdenvueFrameRing {
    uint16_t clear_request;  // set it to 1 to have the whole ring zeroed before the next frame
    uint16_t newest_frame_number;
    uint16_t next_slot;  // 0 to 199, the slot that the next frame goes to
    uint8_t reserved[18];
    struct ArdenvueFrameSlot slots[ARDENVUE_FRAME_SLOT_COUNT];
};
ARDENVUE_ASSERT_LAYOUT(sizeof(struct ArdenvueFrameRing) == 60003624);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameRing, newest_frame_number, 2);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameRing, next_slot, 4);
ARDENVUE_ASSERT_OFFSET(ArdenvueFrameRing, slots, 24);

// Created and initialised like the frame ring (byte 0 is 1, the rest 0), then left to the main application.
#define ARDENVUE_TRANSCODING_BUFFER_NAME "ardenvue_framebuffer_transcoding"
#define ARDENVUE_TRANSCODING_BUFFER_SIZE 13003624

// ---- Gimbal attitude: POSIX shared memory, written at each attitude push, in field order ----

#define ARDENVUE_CAMERA_STATE_NAME "/shared_camstate"

struct ArdenvueCameraState {
    int16_t attitude[3];  // the push's third value, its first, its second negated
};
ARDENVUE_ASSERT_LAYOUT(sizeof(struct ArdenvueCameraState) == 6);

// ---- Raw remote-controller inputs: POSIX shared memory, written by another process on the board ----

#define ARDENVUE_RC_RAW_STATE_NAME "/shared_rc_raw"

struct ArdenvueRcRawState {
    uint8_t writer_private_1[1056];
    double motion_input[3];  // 0 means no motion; board byte order
    uint8_t writer_private_2[424];
};
ARDENVUE_ASSERT_LAYOUT(sizeof(double) == 8 && sizeof(struct ArdenvueRcRawState) == 1504);
ARDENVUE_ASSERT_OFFSET(ArdenvueRcRawState, motion_input, 1056);

// ---- Datagrams to the main application ----

// First byte of the status line; its text of comma-terminated key=value pairs follows.
#define ARDENVUE_STATUS_LINE_TYPE 0x07
// First byte of the two records below; the second says which.
#define ARDENVUE_RECORD_TYPE 6
#define ARDENVUE_GIMBAL_FOCUS_SUBTYPE 0
#define ARDENVUE_HISTOGRAM_SUBTYPE 1

// Bytes only, so that the fields stand where the datagram has them; two-byte fields are low byte first.
struct ArdenvueGimbalFocusRecord {
    uint8_t type;     // ARDENVUE_RECORD_TYPE
    uint8_t subtype;  // ARDENVUE_GIMBAL_FOCUS_SUBTYPE
    uint8_t orientation_lock;
    uint8_t attitude[3][2];  // signed, the values of ArdenvueCameraState
    uint8_t camera_flags_a;  // recording while its bits 6 and 7 hold 2
    uint8_t camera_flags_b;
    uint8_t camera_flags_c;
    uint8_t focus_valid;
    uint8_t focus_mode;
    uint8_t reserved_1;
    uint8_t focus_max[2];
    uint8_t focus_position[2];
    uint8_t focus_point_x[2];  // x 1000
    uint8_t focus_point_y[2];
    uint8_t focus_aux_1;
    uint8_t focus_aux_2;
    uint8_t reserved_2[3];
};
ARDENVUE_ASSERT_LAYOUT(sizeof(struct ArdenvueGimbalFocusRecord) == 28);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, attitude, 3);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, camera_flags_a, 9);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, focus_valid, 12);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, focus_max, 15);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, focus_point_x, 19);
ARDENVUE_ASSERT_OFFSET(ArdenvueGimbalFocusRecord, focus_aux_1, 23);

struct ArdenvueHistogramRecord {
    uint8_t type;     // ARDENVUE_RECORD_TYPE
    uint8_t subtype;  // ARDENVUE_HISTOGRAM_SUBTYPE
    uint8_t histogram[64];
};
ARDENVUE_ASSERT_LAYOUT(sizeof(struct ArdenvueHistogramRecord) == 66);

// ---- Ports and files ----

#define ARDENVUE_DEFAULT_STATUS_PORT 5000    // UDP, status line and records
#define ARDENVUE_RECORDING_NOTICE_PORT 5255  // UDP on 127.0.0.1, "rec_active" and "rec_inactive"
#define ARDENVUE_RELAY_PORT 6000             // TCP, the raw stream both ways
#define ARDENVUE_BOARD_SUPPORTED_PATH "/run/ardenvue/board_supported"
#define ARDENVUE_VIDEO_WIDTH_PATH "/run/ardenvue/video_width"
#define ARDENVUE_VIDEO_HEIGHT_PATH "/run/ardenvue/video_height"

#undef ARDENVUE_ASSERT_OFFSET
#undef ARDENVUE_ASSERT_LAYOUT

#ifdef __cplusplus
namespace ardenvue {

using FrameSlot = ::ArdenvueFrameSlot;
using FrameRing = ::ArdenvueFrameRing;
using CameraState = ::ArdenvueCameraState;
using RcRawState = ::ArdenvueRcRawState;
using GimbalFocusRecord = ::ArdenvueGimbalFocusRecord;
using HistogramRecord = ::ArdenvueHistogramRecord;

constexpr const char* frame_ring_name = ARDENVUE_FRAME_RING_NAME;
constexpr std::size_t frame_slot_count = ARDENVUE_FRAME_SLOT_COUNT;
constexpr std::size_t frame_slot_capacity = ARDENVUE_FRAME_SLOT_CAPACITY;
constexpr const char* transcoding_buffer_name = ARDENVUE_TRANSCODING_BUFFER_NAME;
constexpr std::size_t transcoding_buffer_size = ARDENVUE_TRANSCODING_BUFFER_SIZE;
constexpr const char* camera_state_name = ARDENVUE_CAMERA_STATE_NAME;
constexpr const char* rc_raw_state_name = ARDENVUE_RC_RAW_STATE_NAME;
constexpr std::uint8_t status_line_type = ARDENVUE_STATUS_LINE_TYPE;
constexpr std::uint8_t record_type = ARDENVUE_RECORD_TYPE;
constexpr std::uint8_t gimbal_focus_subtype = ARDENVUE_GIMBAL_FOCUS_SUBTYPE;
constexpr std::uint8_t histogram_subtype = ARDENVUE_HISTOGRAM_SUBTYPE;
constexpr std::uint16_t default_status_port = ARDENVUE_DEFAULT_STATUS_PORT;
constexpr std::uint16_t recording_notice_port = ARDENVUE_RECORDING_NOTICE_PORT;
constexpr std::uint16_t relay_port = ARDENVUE_RELAY_PORT;
constexpr const char* board_supported_path = ARDENVUE_BOARD_SUPPORTED_PATH;
constexpr const char* video_width_path = ARDENVUE_VIDEO_WIDTH_PATH;
constexpr const char* video_height_path = ARDENVUE_VIDEO_HEIGHT_PATH;

}  // namespace ardenvue
#endif

#endif
