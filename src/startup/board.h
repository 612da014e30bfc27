#pragma once

#include <string>
#include <string_view>

// The board's model text from the device tree, at most 100 bytes; empty when there is none. Main thread.
std::string read_board_model();

// Whether the model is one of those on which the service runs.
bool is_board_supported(std::string_view model);

// Says which board this is, and notes in a file under /run whether it is supported. Returns whether it is.
// Main thread, once.
bool check_board();

// Starts the board's firmware library at the first call; later calls do nothing. Main thread.
void init_bcm_host();
