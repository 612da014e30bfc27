// The link to the main application: status out, commands in.
#pragma once

#include <cstdint>

// Starts the gimbal motion thread, opens the command socket with its reader thread, and starts the status
// thread, which sends to that host (IPv4 dotted text, copied) and port. Commands are taken from any source.
// Returns 0, or -1 when the command socket can't be opened or a thread can't be started; the status thread
// does not run then. Main thread, once.
int mainapp_link_start(const char* host, std::uint16_t port);
