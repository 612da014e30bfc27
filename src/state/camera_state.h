#pragma once

#include "ardenvue.h"

// Opens or creates the shared gimbal attitude record and says on the standard error stream which. Returns its
// address, for the life of the process, or null when it can't be had. USB reader thread, once.
ardenvue::CameraState* open_camera_state();
