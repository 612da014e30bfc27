// The process entry: brings everything up in a fixed order, then supervises. Every way out is an exit with a
// code.
#include <cstdio>
#include <string_view>

#include "ardenvue.h"
#include "commands/mainapp_link.h"
#include "platform/clock.h"
#include "platform/diagnostics.h"
#include "platform/process_end.h"
#include "startup/board.h"
#include "startup/options.h"
#include "startup/supervision.h"
#include "state/telemetry.h"
#include "usb/gadget.h"
#include "usb/tcp_relay.h"
#include "video/frame_buffers.h"

namespace {
constexpr std::uint32_t settling_ms = 1000;

void check_command_line(int argc, char* argv[]) {
    if (parse_options(argc, argv) != 0) {
        end_process(exit_failed);
    }
    if (options().dst_port == 0) {
        end_process(exit_failed, "Destination host or port not set\n");
    }
}

void start_frame_buffers() {
    std::fputs("Init telemetry buffer\n", stderr);
    if (init_frame_buffers() != 0) {
        end_process(exit_no_frame_memory, "Failed to init telemetry buffer\n");
    }
}

void start_mainapp_link() {
    const Options& settings = options();
    const bool is_verbose = settings.verbose != 0;
    if (is_verbose) {
        std::fprintf(stderr, "Init connection to main application %s:%d\n", settings.dst_host,
                     settings.dst_port);
    }
    const bool has_failed =
        mainapp_link_start(settings.dst_host, static_cast<std::uint16_t>(settings.dst_port)) != 0;
    if (has_failed) {
        end_process(exit_failed, is_verbose ? "Failed\n" : nullptr);
    }
    if (is_verbose) {
        std::fputs("Done\n", stderr);
    }
}

void start_usb_link() {
    if (gadget_init() != 0) {
        end_process(exit_failed);
    }
}

void start_relay() {
    tcp_set_receive_handler(relay_to_usb);
    if (tcp_server_start(ardenvue::relay_port) != 0) {
        end_process(exit_failed, "Failed to start TCP server\n");
    }
}
}  // namespace

int main(int argc, char* argv[]) {
    if (argc == 2 && std::string_view{argv[1]} == "--version") {
        std::puts("ardenvue " ARDENVUE_VERSION);
        return 0;
    }
    start_diagnostics();
    std::fputs("\nDJI Phantom 4 USB client\n", stderr);
    if (!check_board()) {
        end_process(exit_failed);
    }
    check_command_line(argc, argv);
    sleep_ms(settling_ms);
    init_bcm_host();
    clear_telemetry_state();
    start_frame_buffers();
    start_mainapp_link();
    start_usb_link();
    start_relay();
    supervise();
}
