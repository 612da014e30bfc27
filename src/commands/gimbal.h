// Gimbal commands. Each writes its lines, then sends; all run on the UDP reader thread.
#pragma once

// "normal" or "selfie". The gimbal has one "next position" packet that swings it from either side to the
// other, so the attitude that it reported last decides which packet leads there. Any other text does nothing.
void gimbal_set_position(const char* position);

// "lock" or "unlock": sets the flag on which the gimbal motion thread holds the gimbal; sends nothing itself.
// Any other text does nothing.
void gimbal_set_orientation_lock(const char* state);

// "calibrate": three packets. Any other text does nothing.
void gimbal_calibrate(const char* action);

// "tiltlocked", "fpv" or "follow": two packets; any other text only writes the line.
void gimbal_set_mode(const char* mode);

// "slow"; any other text is fast.
void gimbal_set_follow_speed(const char* speed);
