#include "commands/mainapp_link.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "commands/dispatcher.h"
#include "io/udp_endpoint.h"
#include "platform/thread.h"
#include "state/rc_poller.h"
#include "state/status_sender.h"
#include "state/telemetry.h"

namespace {

constexpr std::uint32_t peer_timeout_ms = 1000;

void say_found() {
    std::fputs("Main application found\n", stderr);
}

void say_lost() {
    std::fputs("Main application lost\n", stderr);
}

void handle_datagram(std::span<const std::uint8_t> datagram, const char*, std::uint16_t) {
    command_dispatch(reinterpret_cast<const char*>(datagram.data()));
}

}  // namespace

int mainapp_link_start(const char* host, std::uint16_t port) {
    MainAppTarget& target = main_app_target();
    target.telemetry = &get_telemetry_state();
    if (start_rc_poller() != 0) {
        return -1;
    }
    local_notify_open();
    target.host = strdup(host);
    target.port = port;
    if (udp_endpoint_open(0, peer_timeout_ms, true, {handle_datagram, say_found, say_lost}) != 0) {
        return -1;
    }
    pthread_t thread{};
    return start_thread(status_thread, thread, "status") == 0 ? 0 : -1;
}
