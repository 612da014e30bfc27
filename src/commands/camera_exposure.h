// Exposure and image commands. Each writes its line, whatever the text, then sends; all run on the UDP reader
// thread. Where an unknown text sends a packet with code 0, the camera decides what to make of it.
#pragma once

// The exposure program: "auto", "shutter", "aperture" or "manual". An unknown text sends nothing.
void camera_set_video_mode(const char* program);

// A shutter speed as the camera has it, "1/50" or, in seconds, 2.5 with a double-quote sign behind it; an
// unknown text sends 0.
void camera_set_shutter(const char* speed);

// The f-number as a decimal number; sent times 100, low 16 bits.
void camera_set_aperture(const char* f_number);

// "100" to "6400"; an unknown number sends code 0.
void camera_set_iso(const char* iso);

// Exposure compensation, one of the nineteen thirds of a stop from -3.0 to 3.0 with one decimal, however
// written ("0.30", "+0.3"); any other number sends nothing.
void camera_set_ev(const char* ev);

// "auto", "sunny", "cloudy", "incandescent", "neon", or "custom" with the colour temperature in kelvin, above
// 1900, as a text; null for no temperature. Any other text, and "custom" without a usable temperature, sends
// nothing.
void camera_set_white_balance(const char* setting, const char* temperature);

// The colour profile, see camera_codes::color_profiles; an unknown text sends code 0.
void camera_set_color(const char* profile);
