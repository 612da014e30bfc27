// Commands to the camera and the gimbal, by typed functions and by words, and whether the camera's state
// shows them.
//
//     int command = ardenvue_send(link, "iso 400");          // or: ardenvue_set_iso(link, 400)
//     if (command < 0) puts(ardenvue_link_problem(link));     // unknown iso ISO "450": did you mean "400"? …
//     else if (ardenvue_confirm(link, command, 3000) > 0) puts("the camera has it");
//
// Every command is checked against what the camera takes before it is sent: a misspelt value is an error
// here, and never becomes another setting. The service answers nothing; the state shows what became of a
// command, within a second or so. A link sends to whoever it heard last (ardenvue_link_service), so the first
// report must have come: wait for any report (0.2 s), or for a status line (a second) where it matters what
// was there before.
//
// Threads as for state.h. Sending costs one datagram and some microseconds. All functions that send return
// the number of the command, above 0, or a negative ArdenvueError: ARDENVUE_ERROR_COMMAND (no such command or
// value; nothing was sent), ARDENVUE_ERROR_NONE_YET (the service has not been heard yet),
// ARDENVUE_ERROR_SYSTEM (it could not be sent).
#ifndef ARDENVUE_COMMANDS_H
#define ARDENVUE_COMMANDS_H

#include "ardenvue/state.h"

#ifdef __cplusplus
extern "C" {
#endif

// ---- By words ----

// "record start", "shutter 1/500", "focus point 0.25 0.75": the words of ardenvue_command_overview.
ARDENVUE_API int ardenvue_send(ArdenvueLink* link, const char* words);

// An object as it is, without the "!": for what a later service may know. It must be a JSON object and fit a
// datagram (9,999 bytes), else ARDENVUE_ERROR_COMMAND. No report is known to show it.
ARDENVUE_API int ardenvue_send_json(ArdenvueLink* link, const char* json);

// What a command says, without sending it.
struct ArdenvueCommand {
    char words[96];        // in this library's writing, "ev 0.3" for "ev +0.30"
    char name[32];         // without its arguments, "gimbal mode"
    char json[160];        // the object that is sent behind the "!"
    char reported_in[32];  // the key of the status line, or the record's field; "": no report shows it
};

// 0, or ARDENVUE_ERROR_COMMAND; the reason, which may be NULL, then says what was probably meant and what may
// be said.
ARDENVUE_API int ardenvue_command_check(const char* words, struct ArdenvueCommand* command, char* reason,
                                        size_t reason_size);

// The name of each command in turn, "iso", "focus point", and each choice of its argument, "auto", "100";
// NULL behind the last one, and for a command that takes a number or nothing. For menus. The texts live as
// long as the library.
ARDENVUE_API const char* ardenvue_command_name(size_t index);
ARDENVUE_API const char* ardenvue_command_choice(const char* name, size_t index);

// All commands with their arguments, lines of at most 100 characters; as snprintf(3): at most size bytes are
// written, NUL-terminated, and the whole length is returned. ARDENVUE_ERROR_MEMORY.
ARDENVUE_API int ardenvue_command_overview(char* text, size_t size);

// ---- Confirmation ----

enum ArdenvueConfirmation {
    ARDENVUE_CAME = 1,  // the state shows it now and did not when the command was sent
    ARDENVUE_WAS_THERE =
        2,              // the state shows it now as it did before: nothing tells whether the command arrived
    ARDENVUE_SHOWN = 3  // the state shows it now; nothing had been reported of it before
};

// Waits until reports that came after the command show it: an ArdenvueConfirmation, at once for a command
// that was confirmed before, whatever came since. ARDENVUE_ERROR_TIMEOUT: not shown in time; with a timeout
// of 0 this asks without waiting, and takes in nothing. ARDENVUE_ERROR_NOT_REPORTED: no report shows this
// command. ARDENVUE_ERROR_ARGUMENT: the newest 64 commands are remembered, and this is none of them.
// ARDENVUE_ERROR_INTERRUPTED: a signal came.
// Allow for the camera's report (0.2 s) and the line's second; for "histogram 0", three seconds more. "shot"
// is shown by fewer shots left, which takes a status line from before it.
ARDENVUE_API int ardenvue_confirm(ArdenvueLink* link, int command, int timeout_ms);

// ---- Typed: recording, photos, camera ----

ARDENVUE_API int ardenvue_start_recording(ArdenvueLink* link);
ARDENVUE_API int ardenvue_stop_recording(ArdenvueLink* link);
ARDENVUE_API int ardenvue_take_photo(ArdenvueLink* link);
// PHOTO or VIDEO.
ARDENVUE_API int ardenvue_set_camera_mode(ArdenvueLink* link, enum ArdenvueCameraMode mode);
ARDENVUE_API int ardenvue_set_photo_format(ArdenvueLink* link, enum ArdenvuePhotoFormat format);
ARDENVUE_API int ardenvue_set_photo_ratio(ArdenvueLink* link, enum ArdenvuePhotoRatio ratio);
// Of recordings: 1920, 1080, 60. Not every size has every rate.
ARDENVUE_API int ardenvue_set_video_format(ArdenvueLink* link, int width, int height, int rate);
ARDENVUE_API int ardenvue_set_video_standard(ArdenvueLink* link, enum ArdenvueVideoStandard standard);
enum ArdenvueTransmission {
    ARDENVUE_TRANSMISSION_REGULAR = 1,
    ARDENVUE_TRANSMISSION_HD = 2,
    ARDENVUE_TRANSMISSION_SMOOTH = 3
};
// Of the live picture. No report shows it.
ARDENVUE_API int ardenvue_set_transmission(ArdenvueLink* link, enum ArdenvueTransmission mode);
// Can't be undone; no report shows them.
ARDENVUE_API int ardenvue_reset_camera(ArdenvueLink* link);
ARDENVUE_API int ardenvue_format_card(ArdenvueLink* link);

// ---- Typed: exposure and image ----

ARDENVUE_API int ardenvue_set_exposure_program(ArdenvueLink* link, enum ArdenvueExposureProgram program);
// Seconds: 1.0 / 500, 2.5. One of the camera's speeds, to within a part in a thousand.
ARDENVUE_API int ardenvue_set_shutter(ArdenvueLink* link, double seconds);
// The f-number, 1 to 32; the lens has its own limits.
ARDENVUE_API int ardenvue_set_aperture(ArdenvueLink* link, double number);
// 100, 200, 400 … 6400; 0 is automatic.
ARDENVUE_API int ardenvue_set_iso(ArdenvueLink* link, int iso);
// -3 to 3 in thirds, to one decimal: -0.3, 0, 1.7.
ARDENVUE_API int ardenvue_set_ev(ArdenvueLink* link, double ev);
// Not CUSTOM, which is the next one: 2000 to 10000 kelvin, of which the hundreds count.
ARDENVUE_API int ardenvue_set_white_balance(ArdenvueLink* link, enum ArdenvueWhiteBalance light);
ARDENVUE_API int ardenvue_set_white_balance_kelvin(ArdenvueLink* link, int kelvin);
ARDENVUE_API int ardenvue_set_color(ArdenvueLink* link, enum ArdenvueColor color);
ARDENVUE_API int ardenvue_set_antiflicker(ArdenvueLink* link, enum ArdenvueAntiflicker mode);
ARDENVUE_API int ardenvue_set_histogram(ArdenvueLink* link, bool on);

// ---- Typed: focus ----

ARDENVUE_API int ardenvue_set_focus_type(ArdenvueLink* link, enum ArdenvueFocusType type);
// Fractions of the picture, 0 to 1, from its upper left corner.
ARDENVUE_API int ardenvue_set_focus_point(ArdenvueLink* link, double x, double y);
// Per cent of the manual range, 0 to 100.
ARDENVUE_API int ardenvue_set_focus_position(ArdenvueLink* link, int percent);

// ---- Typed: gimbal ----

// Centred, ahead or back at the person flying.
ARDENVUE_API int ardenvue_face_ahead(ArdenvueLink* link);
ARDENVUE_API int ardenvue_face_back(ArdenvueLink* link);
// Holds the gimbal's direction, or lets it follow again.
ARDENVUE_API int ardenvue_lock_orientation(ArdenvueLink* link, bool locked);
// The four below are shown by no report.
enum ArdenvueGimbalMode {
    ARDENVUE_GIMBAL_TILT_LOCKED = 1,
    ARDENVUE_GIMBAL_FPV = 2,
    ARDENVUE_GIMBAL_FOLLOW = 3
};
ARDENVUE_API int ardenvue_set_gimbal_mode(ArdenvueLink* link, enum ArdenvueGimbalMode mode);
enum ArdenvueFollowSpeed { ARDENVUE_FOLLOW_SLOW = 1, ARDENVUE_FOLLOW_FAST = 2 };
ARDENVUE_API int ardenvue_set_follow_speed(ArdenvueLink* link, enum ArdenvueFollowSpeed speed);
ARDENVUE_API int ardenvue_calibrate_horizon(ArdenvueLink* link);
// What the stick inputs (sticks.h) mean: positions, or speeds as after every start of the service.
enum ArdenvueMovement { ARDENVUE_MOVEMENT_ABSOLUTE = 1, ARDENVUE_MOVEMENT_RELATIVE = 2 };
ARDENVUE_API int ardenvue_set_movement(ArdenvueLink* link, enum ArdenvueMovement movement);

#ifdef __cplusplus
}
#endif

#endif
