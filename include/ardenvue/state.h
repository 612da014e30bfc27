// The camera's state: the status line and the two records that the service sends, as typed values and in the
// camera's own words, and how old all of it is. The handle of this header is the one that commands.h sends
// through: an application's end of the UDP link.
//
//     ArdenvueLink* link = NULL;
//     char reason[ARDENVUE_REASON_SIZE];
//     if (ardenvue_link_open(&link, NULL, ARDENVUE_DEFAULT_STATUS_PORT, reason, sizeof reason) < 0) {
//     puts(reason); return 1; } struct ArdenvueStatus status; while (ardenvue_link_wait(link,
//     ARDENVUE_STATUS_LINE, 5000) > 0 && ardenvue_link_status(link, &status) == 0) {
//         printf("%s, iso %d, battery %d %%\n", status.camera_model, (int)status.iso,
//         (int)status.battery_percent);
//     }
//     ardenvue_link_close(link);
//
// A link has no thread and takes no lock: all calls with one handle come from one thread at a time. After it
// has been opened nothing here allocates. Times are CLOCK_MONOTONIC in nanoseconds; timeouts are
// milliseconds, as poll(2) takes them, below 0 without end. A function that returns int gives a negative
// ArdenvueError when it failed, and ardenvue_link_problem() then says more where there is more to say.
#ifndef ARDENVUE_STATE_H
#define ARDENVUE_STATE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "ardenvue/error.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArdenvueLink ArdenvueLink;

struct sockaddr_in;

// ---- The link ----

// Binds the status port, to which the service sends, on an IPv4 address of this machine; NULL is 127.0.0.1,
// port 0 is one that the kernel chooses. One application at a time can hold it: ARDENVUE_ERROR_BUSY, and the
// reason names the holder where /proc tells it. Any bytes may come to that port, from anybody: whatever the
// service does not send is counted and left alone, and while the service is heard nobody else is listened to.
// The reason may be NULL. Some 20 KB.
ARDENVUE_API int ardenvue_link_open(ArdenvueLink** link, const char* address, uint16_t port, char* reason,
                                    size_t reason_size);

// A link without the status port, for an application that receives the datagrams itself (ardenvue_link_take)
// or that knows the command port ("127.0.0.1:40000") while another process holds the status port;
// command_port may be NULL until a datagram was taken. Waiting on such a link is ARDENVUE_ERROR_ARGUMENT.
ARDENVUE_API int ardenvue_link_open_unbound(ArdenvueLink** link, const char* command_port, char* reason,
                                            size_t reason_size);

// NULL is allowed.
ARDENVUE_API void ardenvue_link_close(ArdenvueLink* link);

// From now on the service counts this application as present: whenever a call with this link comes and
// nothing was sent for half a second, "!{}" goes out. So call ardenvue_link_wait at least twice a second; a
// longer wait sends on.
ARDENVUE_API void ardenvue_link_keep_present(ArdenvueLink* link, bool present);

// From now on the link looks at the newest frame number of the frame ring too, some five times a second while
// it waits, so that ardenvue_link_state knows a remote controller that fell silent. NULL is the service's
// ring. A ring that isn't there yet is looked for once a second. An application that reads the frames itself
// calls ardenvue_link_saw_frame with each frame instead.
ARDENVUE_API int ardenvue_link_watch_frames(ArdenvueLink* link, const char* ring_name);
ARDENVUE_API void ardenvue_link_saw_frame(ArdenvueLink* link, int64_t time_ns);

// The socket, to poll(2) for POLLIN beside the application's own; then ardenvue_link_wait with a timeout of 0
// until it is ARDENVUE_ERROR_TIMEOUT. -1 for a link without the status port.
ARDENVUE_API int ardenvue_link_descriptor(const ArdenvueLink* link);

// What went wrong in the newest call that failed, in a sentence; "" when no call did. Valid until the next
// call.
ARDENVUE_API const char* ardenvue_link_problem(const ArdenvueLink* link);

// ---- What arrives ----

enum ArdenvueReport {
    ARDENVUE_ANY_REPORT = 0,
    ARDENVUE_STATUS_LINE = 1,   // once a second
    ARDENVUE_GIMBAL_FOCUS = 2,  // five times a second
    ARDENVUE_HISTOGRAM = 3      // five times a second, while the camera sends histograms
};

// Takes in reports until one of that kind has come, which it returns (an ArdenvueReport).
// ARDENVUE_ERROR_TIMEOUT: none came in time; ARDENVUE_ERROR_INTERRUPTED: a signal did. Sleeps in poll(2)
// meanwhile.
ARDENVUE_API int ardenvue_link_wait(ArdenvueLink* link, enum ArdenvueReport report, int timeout_ms);

// Takes in a datagram that the caller received, and where it came from, so that commands find their way
// (NULL: not known). Returns what it was, or ARDENVUE_ERROR_DATA: none of the service's.
ARDENVUE_API int ardenvue_link_take(ArdenvueLink* link, const void* datagram, size_t size,
                                    const struct sockaddr_in* source);

// Whether what is shown is what is so.
enum ArdenvueLinkState {
    ARDENVUE_LINK_DOWN = 0,    // neither reports nor frames come
    ARDENVUE_LINK_SILENT = 1,  // reports without a new frame for a second are the last values, sent on; so is
                               // a picture without reports. Show it as old.
    ARDENVUE_LINK_LIVE = 2     // a report came within 1.5 s and, where frames are watched, a frame within 1 s
};
ARDENVUE_API enum ArdenvueLinkState ardenvue_link_state(ArdenvueLink* link);

// When the newest report of the kind came; 0: none yet. And how long ago that is, in nanoseconds; -1: none
// yet.
ARDENVUE_API int64_t ardenvue_link_report_time(const ArdenvueLink* link, enum ArdenvueReport report);
ARDENVUE_API int64_t ardenvue_link_report_age(const ArdenvueLink* link, enum ArdenvueReport report);

// Where commands go, "127.0.0.1:40000"; "" while it is not known. It is learnt from any report. Valid until
// the next call.
ARDENVUE_API const char* ardenvue_link_service(ArdenvueLink* link);

struct ArdenvueLinkTotals {
    uint64_t status_lines;
    uint64_t gimbal_focus_records;
    uint64_t histogram_records;
    uint64_t ignored;   // malformed, or from somebody else than the service
    uint64_t restarts;  // the service was met again on another port: it has started anew, so the movement
                        // mode is "rel" and the orientation lock is off
};
ARDENVUE_API void ardenvue_link_totals(const ArdenvueLink* link, struct ArdenvueLinkTotals* totals);

// ---- The status line, in the camera's own words ----

// The text of a key, NUL-terminated, printable ASCII; "" while no line has come, or it has no such key. Valid
// until the next report is taken in.
ARDENVUE_API const char* ardenvue_link_text(const ArdenvueLink* link, const char* key);

// The pairs of the newest line in their order: 0, or ARDENVUE_ERROR_ARGUMENT behind the last one.
ARDENVUE_API int ardenvue_link_pair(const ArdenvueLink* link, size_t index, const char** key,
                                    const char** value);

// ---- The status line, as values ----

// 0 of each is "not known, or a word that this version does not know". The words of commands and of the state
// have the same numbers.
enum ArdenvueCameraMode { ARDENVUE_MODE_PHOTO = 1, ARDENVUE_MODE_VIDEO = 2, ARDENVUE_MODE_PLAYBACK = 3 };
enum ArdenvuePhotoFormat { ARDENVUE_PHOTO_RAW = 1, ARDENVUE_PHOTO_JPG = 2, ARDENVUE_PHOTO_JPG_RAW = 3 };
enum ArdenvuePhotoRatio { ARDENVUE_RATIO_4_3 = 1, ARDENVUE_RATIO_16_9 = 2 };
enum ArdenvueExposureProgram {
    ARDENVUE_PROGRAM_AUTO = 1,
    ARDENVUE_PROGRAM_SHUTTER = 2,
    ARDENVUE_PROGRAM_APERTURE = 3,
    ARDENVUE_PROGRAM_MANUAL = 4
};
enum ArdenvueWhiteBalance {
    ARDENVUE_WB_AUTO = 1,
    ARDENVUE_WB_SUNNY = 2,
    ARDENVUE_WB_CLOUDY = 3,
    ARDENVUE_WB_INCANDESCENT = 4,
    ARDENVUE_WB_NEON = 5,
    ARDENVUE_WB_CUSTOM = 6
};
enum ArdenvueColor {
    ARDENVUE_COLOR_NONE = 1,
    ARDENVUE_COLOR_TRUECOLOR = 2,
    ARDENVUE_COLOR_D_CINELIKE = 3,
    ARDENVUE_COLOR_D_LOG = 4,
    ARDENVUE_COLOR_FILM = 5,
    ARDENVUE_COLOR_BLACK_WHITE = 6,
    ARDENVUE_COLOR_COOL = 7,
    ARDENVUE_COLOR_TWILIGHT = 8,
    ARDENVUE_COLOR_PALE = 9,
    ARDENVUE_COLOR_SEPIA = 10,
    ARDENVUE_COLOR_WARM = 11,
    ARDENVUE_COLOR_BLUE = 12,
    ARDENVUE_COLOR_BLOCKBUSTER = 13
};
enum ArdenvueVideoStandard { ARDENVUE_STANDARD_PAL = 1, ARDENVUE_STANDARD_NTSC = 2 };
enum ArdenvueAntiflicker {
    ARDENVUE_ANTIFLICKER_AUTO = 1,
    ARDENVUE_ANTIFLICKER_50_HZ = 2,
    ARDENVUE_ANTIFLICKER_60_HZ = 3
};

// A number that is not known is NAN in a double; in an int32_t it is -1, but 0 where the camera's own number
// is passed on (shots_left, voltage, battery_percent, iso, white_balance_kelvin).
struct ArdenvueStatus {
    int64_t time_ns;        // of arrival
    char camera_model[64];  // "Phantom 4 Pro"
    bool camera_detected;   // the camera has reported itself
    bool ae;                // its exposure flag
    bool histogram;         // histogram records are sent
    enum ArdenvueCameraMode camera_mode;
    double card_gigabytes;
    int32_t shots_left;              // photos that fit on the card
    int32_t recording_seconds_left;  // that fit on it
    int32_t recording_seconds;       // recorded now
    int32_t voltage;                 // as the aircraft reports it
    int32_t battery_percent;
    double battery_temperature;  // degrees Celsius
    enum ArdenvuePhotoFormat photo_format;
    enum ArdenvuePhotoRatio photo_ratio;
    int32_t video_width;  // of recordings, in pixels
    int32_t video_height;
    int32_t video_rate;  // frames a second
    enum ArdenvueVideoStandard video_standard;
    double aperture;     // f-number
    double shutter;      // in use, seconds
    double shutter_set;  // set, seconds
    int32_t iso;         // in use
    int32_t iso_set;     // set; 0 is automatic
    double ev;
    enum ArdenvueExposureProgram exposure_program;
    enum ArdenvueColor color;
    enum ArdenvueWhiteBalance white_balance;
    int32_t white_balance_kelvin;
    enum ArdenvueAntiflicker antiflicker;
    int32_t sensor;
    int32_t playback_id;
};

// The newest line; ARDENVUE_ERROR_NONE_YET before the first. A few microseconds.
ARDENVUE_API int ardenvue_link_status(const ArdenvueLink* link, struct ArdenvueStatus* status);

// ---- The records ----

enum ArdenvueFocusType { ARDENVUE_FOCUS_MF = 1, ARDENVUE_FOCUS_AFS = 2, ARDENVUE_FOCUS_AFC = 3 };

struct ArdenvueGimbalFocus {
    int64_t time_ns;  // of arrival
    int16_t heading;  // degrees; -180 looks back at the person flying
    int16_t tilt;
    int16_t roll;
    bool orientation_lock;
    bool recording;
    uint8_t camera_flags[3];
    bool focus_reported;  // else the fields below are 0
    enum ArdenvueFocusType focus_type;
    uint8_t focus_mode;  // the camera's own code of the type
    uint8_t focus_aux[2];
    uint16_t focus_max;  // upper end of the manual range
    uint16_t focus_position;
    double focus_x;  // of the focus point, fractions of the picture
    double focus_y;
};

// The newest record; ARDENVUE_ERROR_NONE_YET before the first.
ARDENVUE_API int ardenvue_link_gimbal_focus(const ArdenvueLink* link, struct ArdenvueGimbalFocus* record);

// "MF", "AFS", "AFC", or "".
ARDENVUE_API const char* ardenvue_focus_type_text(enum ArdenvueFocusType type);

struct ArdenvueHistogram {
    int64_t time_ns;   // of arrival
    uint8_t bins[64];  // dark to bright
};

// The newest histogram. One that has stopped coming, for 1.5 s, or of which a newer status line says so, is
// gone, not old: ARDENVUE_ERROR_NONE_YET.
ARDENVUE_API int ardenvue_link_histogram(const ArdenvueLink* link, struct ArdenvueHistogram* histogram);

#ifdef __cplusplus
}
#endif

#endif
