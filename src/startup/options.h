#pragma once

#include <cstdint>

// The settings of the command line. Written before any thread is started, read by start-up only.
struct Options {
    char dst_host[20] = "127.0.0.1";  // of the main application, IPv4 dotted text
    std::int32_t dst_port = 5000;     // its UDP port
    std::uint8_t verbose = 0;         // 1: a few more lines at start-up
};

// The one record of the process. Main thread.
Options& options();

// Stores what the command line says into the record; the last occurrence of an option counts, arguments that
// are no options are ignored. Returns 0 when start-up may continue; 1 when it must stop, for help or a fault:
// the usage text has then been printed. Main thread.
int parse_options(int argc, char* argv[]);

void print_usage();
