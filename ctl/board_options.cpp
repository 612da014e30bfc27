#include "ctl/board_options.h"

#include <charconv>

#include <CLI/CLI.hpp>

#include "ardenvue.h"
#include "formats/board_file.h"

namespace ctl {
namespace {

void set_port(std::uint16_t& field, const std::string& value) {
    const char* end = value.data() + value.size();
    std::uint16_t port = 0;
    const auto parsed = std::from_chars(value.data(), end, port);
    if (parsed.ec == std::errc{} && parsed.ptr == end) {
        field = port;
    }
}

void read_simulated_board(const std::string& directory, BoardOptions& options) {
    const auto names = formats::read_board_file(directory);
    if (!names) {
        throw CLI::ValidationError("--board", "there is no simulated board in " + directory);
    }
    for (const auto& [name, value] : *names) {
        if (name == "STATUS_PORT") {
            set_port(options.status_port, value);
        } else if (name == "RELAY_PORT") {
            set_port(options.relay_port, value);
        } else if (name == "FRAME_RING") {
            options.ring_name = value;
        } else if (name == "RUN_DIR") {
            options.run_dir = value;
        }
    }
}

}  // namespace

BoardOptions::BoardOptions()
    : status_port{ardenvue::default_status_port},
      relay_port{ardenvue::relay_port},
      ring_name{ardenvue::frame_ring_name},
      run_dir{"/run/ardenvue"} {}

void add_board_options(CLI::App& app, BoardOptions& options) {
    const auto group = "Where the service is";
    app.add_option("--port", options.status_port, "UDP port that the service sends its status to")
        ->check(CLI::Range(1, 65'535))
        ->capture_default_str()
        ->group(group);
    app.add_option("--address", options.address, "address of this machine that the status is sent to")
        ->check(CLI::ValidIPV4)
        ->capture_default_str()
        ->group(group);
    app.add_option("--relay-port", options.relay_port, "TCP port of the raw stream")
        ->check(CLI::Range(1, 65'535))
        ->capture_default_str()
        ->group(group);
    app.add_option("--ring", options.ring_name, "shared-memory name of the live video")
        ->capture_default_str()
        ->group(group);
    app.add_option("--run-dir", options.run_dir, "directory of the picture size files")
        ->capture_default_str()
        ->group(group);
    app.add_option("--gateway", options.gateway,
                   "URL of an ardenvue-gateway, http://board:8040, by way of which state and commands go")
        ->group(group);
    app.add_option("--token-file", options.token_file,
                   "file with the gateway's token; else it is taken from ARDENVUE_GATEWAY_TOKEN")
        ->check(CLI::ExistingFile)
        ->group(group);
    app.add_option("--board", options.simulated_board, "directory of a simulated board; sets all of these")
        ->check(CLI::ExistingDirectory)
        ->trigger_on_parse()
        ->each([&options](const std::string& directory) { read_simulated_board(directory, options); })
        ->group(group);
}

}  // namespace ctl
