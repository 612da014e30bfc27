// Video format and camera system commands. Each writes its line, whatever the text, where it has one, then
// sends; all run on the UDP reader thread.
#pragma once

// Two packets; a size or rate that the camera does not know is sent as code 0.
void camera_set_video_resolution(int width, int height, int frame_rate);

// Mode of the live image: "Regular", "HD" or "Smooth", two packets; an unknown text sends code 0.
void camera_set_transmission_mode(const char* mode);

// Of photos: "4:3" or "16:9"; any other text sends nothing.
void camera_set_aspect_ratio(const char* ratio);

// File format of photos: "raw", "jpg" or "jpg+raw"; any other text sends nothing.
void camera_set_shot_mode(const char* format);

// "50" or "60" hertz; any other text sends code 0.
void camera_set_antiflicker(const char* frequency);

// "PAL" or "NTSC"; any other text sends nothing.
void camera_set_video_standard(const char* standard);

// Resets the camera's settings; writes nothing.
void camera_reset();

// Formats the card "sd"; any other text does nothing and writes nothing.
void camera_format(const char* card);

// Histogram pushes on ("1") or off ("0"); any other text sends nothing. Writes nothing.
void camera_set_histogram(const char* on);
