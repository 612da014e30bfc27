#pragma once

#include <cstdint>
#include <span>

// Takes over what a verified link packet pushes about camera, gimbal and batteries into the telemetry record,
// and a gimbal attitude into the shared record too, which the first packet of any kind opens. A packet that
// is no such push changes nothing. USB reader thread.
void decode_camera_packet(std::span<const std::uint8_t> packet);
