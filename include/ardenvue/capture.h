// Captures: what went over the cable, recorded with its times by `ardenvue-ctl capture`, taken apart. Needs
// no service.
//
//     ArdenvueCapture* capture = NULL;
//     if (ardenvue_capture_open(&capture, "flight.cap") < 0) { perror("flight.cap"); return 1; }
//     struct ArdenvuePiece piece;
//     while (ardenvue_capture_next(capture, &piece) == 0) {
//         if (piece.kind == ARDENVUE_PIECE_VIDEO) { fwrite(piece.data, 1, piece.size, stdout); } }
//     ardenvue_capture_close(capture);
//
// All calls with one handle come from one thread at a time.
#ifndef ARDENVUE_CAPTURE_H
#define ARDENVUE_CAPTURE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "ardenvue/error.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArdenvueCapture ArdenvueCapture;

// Opens a capture, or a plain recording of the relay's bytes, which has no times. ARDENVUE_ERROR_SYSTEM:
// it can't be read, as errno says.
ARDENVUE_API int ardenvue_capture_open(ArdenvueCapture** capture, const char* path);

// NULL is allowed.
ARDENVUE_API void ardenvue_capture_close(ArdenvueCapture* capture);

enum ArdenvuePieceKind {
    ARDENVUE_PIECE_VIDEO = 1,    // a piece of the H.264 byte stream, as a slot of the frame ring holds it
    ARDENVUE_PIECE_PACKET = 2,   // a packet of the camera, header and sums included
    ARDENVUE_PIECE_COMMAND = 3,  // a packet to the camera
    ARDENVUE_PIECE_DAMAGED = 4   // bytes between packets that are none: their sums don't fit
};

struct ArdenvuePiece {
    enum ArdenvuePieceKind kind;
    int64_t time_ns;      // since the beginning of the capture; 0 without times
    const uint8_t* data;  // valid until the next call with this handle
    size_t size;
};

// The next piece: 0. ARDENVUE_ERROR_NONE_YET behind the last one; ARDENVUE_ERROR_DATA where the capture is
// damaged or cut off: nothing comes behind it.
ARDENVUE_API int ardenvue_capture_next(ArdenvueCapture* capture, struct ArdenvuePiece* piece);

// Whether it has times.
ARDENVUE_API bool ardenvue_capture_has_times(const ArdenvueCapture* capture);

#ifdef __cplusplus
}
#endif

#endif
