#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/file_descriptor.h"

namespace ctl {

// Opens a file to be written anew; "-" is the standard output. Owns nothing, with errno set, when that
// failed.
FileDescriptor open_output(const std::string& path);

// Writes all of it to a pipe or file; false with errno set when that failed, or the program is to end.
bool write_all(int descriptor, std::span<const std::uint8_t> bytes);

// Hands what was printed on to the standard output. False once a write has failed, from then on: who prints
// in a loop ends it then, and lets go of the status port.
bool hand_on_output();

// The same at the end of the program: done, or unusable when a write has failed. Says why on the standard
// error stream, unless it was a pipe that its reader closed.
int finish_output();

}  // namespace ctl
