#include "state/camera_state.h"

#include "platform/shared_memory.h"

ardenvue::CameraState* open_camera_state() {
    return static_cast<ardenvue::CameraState*>(map_shared_memory(
        ardenvue::camera_state_name, sizeof(ardenvue::CameraState),
        {.opened = "Shared cam state mem opened\n", .creating = "Creating new shared cam state\n"}));
}
