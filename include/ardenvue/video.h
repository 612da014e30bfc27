// Live video: the frames of the ring in which the service publishes them, each whole or not at all.
//
//     ArdenvueVideo* video = NULL;
//     char reason[ARDENVUE_REASON_SIZE];
//     if (ardenvue_video_open(&video, NULL, ARDENVUE_START_KEY, reason, sizeof reason) < 0) {
//         puts(reason); return 1; }
//     struct ArdenvueFrame frame;
//     while (ardenvue_video_next(video, &frame, 2000) == 0) { fwrite(frame.data, 1, frame.size, stdout); }
//     ardenvue_video_close(video);
//
// A frame is what the camera sent as one: a piece of an H.264 byte stream with start codes (ITU-T H.264,
// annex B), at most 65,535 bytes, as a rule one picture. The writer never waits, and keeps the newest 200: a
// reader that falls behind loses frames and is told how many.
//
// A handle has no thread and takes no lock: all calls with one come from one thread at a time. After it has
// been opened nothing allocates. Times are nanoseconds; timeouts are milliseconds, as poll(2) takes them,
// below 0 without end.
#ifndef ARDENVUE_VIDEO_H
#define ARDENVUE_VIDEO_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "ardenvue/error.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArdenvueVideo ArdenvueVideo;

// Which frame comes first.
enum ArdenvueStart {
    ARDENVUE_START_KEY = 0,  // the newest sequence parameter set that the ring still holds, so that there is
                             // a picture at once; while it holds none, the next one that comes
    ARDENVUE_START_NEWEST = 1,  // the newest frame
    ARDENVUE_START_OLDEST = 2,  // the oldest one that the writer won't overwrite in the next moment
    ARDENVUE_START_NEXT = 3     // the first one that comes from now on
};

// Maps the ring, for reading alone; NULL is the service's. ARDENVUE_ERROR_SYSTEM: it can't be had, as it is
// before the service first ran or for another user than root; ARDENVUE_ERROR_DATA: it is no frame ring. The
// reason, which may be NULL, says more. Some 66 KB, and 60 MB of addresses; with ARDENVUE_START_KEY up to 190
// frames are looked through.
ARDENVUE_API int ardenvue_video_open(ArdenvueVideo** video, const char* ring_name, enum ArdenvueStart start,
                                     char* reason, size_t reason_size);

// NULL is allowed.
ARDENVUE_API void ardenvue_video_close(ArdenvueVideo* video);

// What follows on frames that were lost: false, as it is at first, is the next sequence parameter set, so
// that nobody sees pictures that were never sent; true is the next frame, whatever a decoder makes of it.
ARDENVUE_API void ardenvue_video_go_on_at_once(ArdenvueVideo* video, bool at_once);

struct ArdenvueFrame {
    const uint8_t* data;  // valid until the next call with this handle
    size_t size;
    uint16_t number;  // the service's, modulo 65,536; begins at 0 with each start of the service
    bool is_key;      // a decoder can begin here: data begins with a sequence parameter set, or holds one
    bool follows_restart;    // the first one of a service that has started anew
    uint32_t missed_before;  // sent since the frame returned before this one, and not returned
    int64_t time_ns;         // of arrival, CLOCK_MONOTONIC; each later than the one before
    int64_t wall_ns;         // of arrival, since 1970-01-01 00:00 UTC; each later than the one before
};

// The next frame, in the order in which they were sent: 0. ARDENVUE_ERROR_TIMEOUT: none came in time;
// ARDENVUE_ERROR_INTERRUPTED: a signal did. Looks into the ring every 3 ms while it waits, which takes far
// less than a hundredth of a processor and adds a millisecond and a half to a frame (bench/client_video
// measures both). A frame that the ring held before the handle was opened "arrives" when it is read.
//
// A ring that another process made shorter, or unlinked and made anew, is given up and taken up again
// when it is whole; made shorter in the very moment of a copy it ends the process by SIGBUS, as any mapping
// does. Who may write to it at all is root, and the service's own user.
ARDENVUE_API int ardenvue_video_next(ArdenvueVideo* video, struct ArdenvueFrame* frame, int timeout_ms);

struct ArdenvueVideoTotals {
    uint64_t frames;  // returned
    uint64_t bytes;
    uint64_t missed;    // overwritten or cleared before they could be read
    uint64_t skipped;   // passed over on the way to a sequence parameter set
    uint32_t restarts;  // of the service
};
ARDENVUE_API void ardenvue_video_totals(const ArdenvueVideo* video, struct ArdenvueVideoTotals* totals);

#ifdef __cplusplus
}
#endif

#endif
