// Capture and focus commands. Each writes its line, then sends; all run on the UDP reader thread.
#pragma once

// Starts recording, or stops it when the flag is 0.
void camera_record(int flag);

// Takes a photo.
void camera_shot();

// "photo" or "video"; any other text does nothing.
void camera_set_mode(const char* mode);

// "afc" (two packets), "afs" or "mf"; any other text only writes the line.
void camera_set_focus_type(const char* type);

// The coordinates go to the camera as they are.
void camera_set_focus_point(float x, float y);

// A percentage of the manual focus range that the camera reported; not limited to 100. The position, cut to
// 16 bits, is 0 until the camera has reported its range.
void camera_set_manual_focus(int percentage);
