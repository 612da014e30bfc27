// The packets that move the gimbal. On the wire the third value stands before the second.
#pragma once

#include "io/packet_run.h"

// Moves the gimbal: each input times 1000, low 16 bits. Gimbal motion thread.
void send_gimbal_relative(PacketRun& run, double input_0, double input_1, double input_2);

// The same packet with the values as they are, low 16 bits. Gimbal motion thread.
void send_gimbal_relative(PacketRun& run, int value_0, int value_1, int value_2);

// Sends the gimbal to a position: input 0 times -600 below zero, else -2400; input 1 times 1500 below zero,
// else 900; input 2 times 450; low 16 bits each. Gimbal motion thread.
void send_gimbal_absolute(PacketRun& run, double input_0, double input_1, double input_2);
