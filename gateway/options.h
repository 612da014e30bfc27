// What the gateway is told on its command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace gateway {

struct Options {
    Options();

    std::string listen = "127.0.0.1:8040";
    std::string forward;  // HOST:PORT of the main application; empty: none
    std::string status_address = "127.0.0.1";
    std::uint16_t status_port;
    std::string ring_name;
    std::string sticks_name;
    std::string guard_path;  // empty: the installed one
    std::string token_file;
    bool open_reading = false;
    std::vector<std::string> allowed_hosts;
    std::vector<std::string> allowed_origins;
    std::string certificate_file;
    std::string key_file;
};

// Adds them all. Parsing throws what CLI11 throws.
void add_options(CLI::App& app, Options& options);

}  // namespace gateway
