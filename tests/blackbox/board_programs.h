// The gadget programs of the simulated board's test: each takes the service's place on a board and writes
// what it sees to its standard error stream, call by call.
#pragma once

#include <map>
#include <string>

namespace blackbox {

// By their names.
extern const std::map<std::string, void (*)()> programs;

}  // namespace blackbox
