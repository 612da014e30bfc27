// All that a link knows of the camera and of itself, as one JSON object on one line: for logs, for other
// languages, for a page. docs/state-json.md describes it; it only ever grows.
#ifndef ARDENVUE_JSON_H
#define ARDENVUE_JSON_H

#include <stddef.h>

#include "ardenvue/error.h"
#include "ardenvue/state.h"

#ifdef __cplusplus
extern "C" {
#endif

// Bytes that always suffice, the NUL included.
#define ARDENVUE_STATE_JSON_SIZE 8192

// Writes the object of this moment, without a line end, as snprintf does: at most size bytes, NUL-terminated;
// returns the length of the whole, which was cut short where that is not below size. The text may be NULL
// where size is 0. What is not known is null; the program's locale doesn't matter. Looks after the link as
// ardenvue_link_state does. Some ten microseconds, no allocation, and no error.
ARDENVUE_API int ardenvue_state_json(ArdenvueLink* link, char* text, size_t size);

#ifdef __cplusplus
}
#endif

#endif
