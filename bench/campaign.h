// What the campaigns share: a dense stream, the figures of a process, and how series of times are summed up.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

#include "sim/remote/clip.h"

namespace campaign {

// Of a running process, as proc(5) has them.
struct ProcessFigures {
    long anonymous_kb = 0;  // memory of its own: without files and shared-memory objects
    int descriptors = 0;
    int threads = 0;
};

// All zero when there is no such process.
ProcessFigures figures_of(pid_t process);

// The least of each over several samples: what a check of a moment (a pipe, a helper process) adds is not in.
ProcessFigures least_of(const std::vector<ProcessFigures>& samples);

// Processes that have this text in their environment.
int processes_with(const std::string& environment);
// Shared-memory objects of the machine whose names begin so.
int shared_objects_with(const std::string& prefix);

// The clip with NAL units of an unspecified type (30, ITU-T H.264 table 7-1; decoders pass them over) behind
// each picture, so that it has that many bits a second. Empty when the file is no clip.
std::vector<sim::AccessUnit> dense_clip(const std::string& path, double bits_per_second,
                                        double frames_per_second);

// The value below which the share of all lies, 0 to 1; 0 when there are none.
double quantile(std::vector<double> values, double share);

// Prints the row of a table: what, the figure, and "ok" or "WRONG". Returns whether it was right.
bool judge(const char* what, const std::string& figure, bool right);
// The same without a verdict.
void note(const char* what, const std::string& figure);

// printf into a string.
template <typename... Values>
std::string text(const char* format, Values... values) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

}  // namespace campaign
