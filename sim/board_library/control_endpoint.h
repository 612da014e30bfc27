// Endpoint 0 of the one device: its events and the requests of the host. Its file is read and written by one
// thread, as gadgetfs expects.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace board_library {

// Forgets everything, when the controller file is opened.
void reset_control_endpoint();

// As read and write do on the configured controller file: events, or a stage of the request that is to be
// answered.
ssize_t read_control(int fd, void* buffer, std::size_t length);
ssize_t write_control(int fd, const void* data, std::size_t length);

// Whether events were taken from the connection that a read would return.
bool has_collected_events();

// Whether the last event read is a setup that has not been answered.
bool has_unanswered_setup();

}  // namespace board_library
