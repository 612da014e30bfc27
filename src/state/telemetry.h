// What the service knows about the aircraft's camera, gimbal and batteries: raw values and ready-made texts,
// one record for the process. The decoder writes it on the USB reader thread while others read it, so every
// access goes through platform/relaxed.h; each reader takes what it finds, a line may mix two pushes.
#pragma once

#include <cstddef>
#include <cstdint>

struct TelemetryState {
    std::int16_t attitude[3];  // gimbal: the push's third value, its first, its second negated
    std::uint8_t camera_detected;
    std::uint8_t device_id;
    char camera_model[20];
    std::uint8_t camera_mode;
    char camera_mode_text[10];
    std::uint8_t gimbal_orientation_lock;  // written by the orientation command alone
    std::uint32_t sd_capacity_mb;
    char sd_text[20];
    std::uint32_t shots_left;
    std::uint32_t record_seconds;
    char record_time_text[20];
    std::uint32_t record_left_seconds;
    char record_left_text[20];
    std::uint16_t power_aux;
    std::int16_t voltage;
    std::int8_t battery_level;
    std::uint16_t battery_temperature;  // tenths
    std::uint8_t focus_valid;
    std::uint8_t focus_aux_1;
    std::uint8_t focus_mode;
    char focus_mode_text[11];
    std::uint16_t focus_max;
    std::uint16_t focus_position;
    float focus_percent;
    float focus_point_x;
    float focus_point_y;
    std::uint8_t focus_aux_2;
    std::uint8_t camera_flags_a;  // recording while its bits 6 and 7 hold 2
    std::uint8_t camera_flags_b;
    std::uint8_t camera_flags_c;
    std::uint32_t histogram_time_ms;  // arrival of the last histogram push; 0: none, or older than 3000 ms
    std::uint8_t histogram[64];
    std::uint8_t photo_format;
    char photo_format_text[10];
    std::uint8_t resolution;
    char resolution_text[10];
    std::uint8_t frame_rate;
    char frame_rate_text[10];
    std::uint8_t exposure_mode;
    char exposure_mode_text[10];
    std::uint8_t ae_flag;
    std::uint16_t aperture;  // f-number x 100
    char aperture_text[12];
    std::uint32_t shutter;  // 24-bit shutter code
    char shutter_text[12];
    std::uint32_t shutter_set;
    char shutter_set_text[10];
    std::uint16_t iso;
    std::uint8_t iso_set;
    char iso_set_text[11];
    float ev;
    char ev_text[10];
    std::uint8_t color_mode;
    char color_mode_text[20];
    std::uint8_t white_balance;
    char white_balance_text[20];
    std::uint8_t wb_temperature_code;  // kelvin / 100
    float wb_temperature;              // kelvin
    std::uint8_t aspect;
    char aspect_text[10];
    std::uint8_t sensor;          // reported, set by nothing
    std::uint8_t video_standard;  // 1 NTSC, 0 PAL
    char video_standard_text[10];
    std::uint8_t antiflicker;
    char antiflicker_text[26];
    char playback_state_text[20];  // this and the three below: reported, set by nothing
    std::uint16_t playback_id;
    char playback_duration_text[24];
    char playback_time_text[20];
    std::uint8_t reserve[128];  // room for fields to come: the record's size is fixed
};
static_assert(sizeof(TelemetryState) == 640);

// The one record of the process; static storage, zero from the start. Any thread.
TelemetryState& get_telemetry_state();

// Sets every byte of the record to zero. Main thread, before any other thread runs.
void clear_telemetry_state();
