// The text of the status line: every key=value pair, always all of them, in a fixed order.
#pragma once

#include <cstddef>

#include "state/telemetry.h"

constexpr std::size_t status_line_capacity = 1300;

// Writes the type byte and the thirty-four pairs, each with its comma, zero-terminated. Returns the length
// without the terminator, which is always below the capacity. Status thread.
std::size_t write_status_line(const TelemetryState& telemetry, char (&line)[status_line_capacity]);
