/* Writes live video to the standard output, from where a decoder can begin: video_dump | ffplay -
 * A gap in it is said, and the stream goes on where a decoder can.
 *
 *   video_dump [RING [FRAMES]]
 */
#include <stdio.h>
#include <stdlib.h>

#include <ardenvue/client.h>

int main(int argc, char** argv) {
    ArdenvueVideo* video = NULL;
    char reason[ARDENVUE_REASON_SIZE];
    const char* const ring = argc > 1 ? argv[1] : ARDENVUE_FRAME_RING_NAME;
    if (ardenvue_video_open(&video, ring, ARDENVUE_START_KEY, reason, sizeof reason) < 0) {
        fprintf(stderr, "%s\n", reason);
        return 1;
    }
    int code = 0;
    for (long left = argc > 2 ? atol(argv[2]) : -1; left != 0; --left) {
        struct ArdenvueFrame frame;
        while (ardenvue_video_next(video, &frame, 2000) < 0) {
            fputs("no video\n", stderr);
        }
        if (frame.missed_before > 0) {
            fprintf(stderr, "missed %lu frames\n", (unsigned long)frame.missed_before);
        }
        if (fwrite(frame.data, 1, frame.size, stdout) != frame.size || fflush(stdout) != 0) {
            perror("standard output");
            code = 1;
            break;
        }
    }
    ardenvue_video_close(video);
    return code;
}
