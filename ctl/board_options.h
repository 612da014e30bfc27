// Where the service is: its ports, names and files. The defaults are a board's own; a simulated board has
// others, which it writes into the file "env" of its directory.
#pragma once

#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace ctl {

struct BoardOptions {
    std::string address = "127.0.0.1";
    std::uint16_t status_port;
    std::uint16_t relay_port;
    std::string ring_name;
    std::string run_dir;
    std::string simulated_board;
    std::string gateway;     // its URL, where the state and the commands go by way of one; empty: they don't
    std::string token_file;  // of the gateway

    BoardOptions();
};

// Adds the options to a command line; --board fills in what the others do not give.
void add_board_options(CLI::App& app, BoardOptions& options);

}  // namespace ctl
