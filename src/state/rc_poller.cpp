#include "state/rc_poller.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "io/packet_run.h"
#include "io/usb_link.h"
#include "platform/clock.h"
#include "platform/relaxed.h"
#include "platform/shared_memory.h"
#include "platform/thread.h"
#include "state/gimbal_motion.h"
#include "state/telemetry.h"

namespace {

constexpr std::uint32_t link_down_wait_ms = 100;
constexpr std::uint32_t pass_ms = 20;
constexpr int stop_packets = 3;

// A second. A record that can't be had is asked for again at this pace: each try writes its line.
constexpr std::uint32_t passes_between_looks = 50;

// What the gimbal motion thread works with.
struct RcPoller {
    ardenvue::RcRawState* mapping;
    bool is_current;  // the name leads to what is mapped
    double inputs[3];
    std::atomic<MovementMode> movement_mode;
    bool moving;
    const TelemetryState* telemetry;
};

RcPoller poller{};

// The writing process has no handshake: one copy, then only the copy is looked at. A record that the writer
// has unlinked holds what it wrote last, for ever: that is no motion.
void read_inputs() {
    if (poller.is_current) {
        std::memcpy(poller.inputs, poller.mapping->motion_input, sizeof poller.inputs);
    } else {
        std::fill(std::begin(poller.inputs), std::end(poller.inputs), 0.0);
    }
}

// Asks for a record that there is none of yet, and takes up one that the writer made anew.
void look_for_record() {
    if (poller.mapping != nullptr && shared_memory_name(poller.mapping) == SharedMemoryName::to_another) {
        unmap_shared_memory(poller.mapping);
        poller.mapping = nullptr;
    }
    if (poller.mapping == nullptr) {
        poller.mapping = open_rc_raw_state();
    }
    poller.is_current =
        poller.mapping != nullptr && shared_memory_name(poller.mapping) == SharedMemoryName::to_it;
}

bool any_input() {
    return std::any_of(std::begin(poller.inputs), std::end(poller.inputs),
                       [](double input) { return input != 0.0; });
}

void send_motion(PacketRun& run, MovementMode mode, double input_0, double input_1, double input_2) {
    if (mode == MovementMode::relative) {
        send_gimbal_relative(run, input_0, input_1, input_2);
    } else {
        send_gimbal_absolute(run, input_0, input_1, input_2);
    }
}

void run_pass() {
    read_inputs();
    const MovementMode mode = poller.movement_mode.load(std::memory_order_relaxed);
    if (any_input()) {
        poller.moving = true;
        PacketRun run;
        send_motion(run, mode, poller.inputs[0], poller.inputs[1], poller.inputs[2]);
        return;
    }
    if (poller.moving) {
        PacketRun run;
        for (int i = 0; i < stop_packets; ++i) {
            send_motion(run, mode, 0.0, 0.0, 0.0);
        }
        poller.moving = false;
    }
    if (mode == MovementMode::relative && load_relaxed(poller.telemetry->gimbal_orientation_lock) != 0) {
        PacketRun run;
        send_gimbal_relative(run, 1, 1, 1);
    }
}

}  // namespace

void set_movement_mode(MovementMode mode) {
    poller.movement_mode.store(mode, std::memory_order_relaxed);
}

ardenvue::RcRawState* open_rc_raw_state() {
    return static_cast<ardenvue::RcRawState*>(map_shared_memory(
        ardenvue::rc_raw_state_name, sizeof(ardenvue::RcRawState),
        {.opened = "Shared raw RC mem opened\n", .creating = "Creating new shared raw RC\n"}));
}

int start_rc_poller() {
    poller.telemetry = &get_telemetry_state();
    std::fill(std::begin(poller.inputs), std::end(poller.inputs), 0.0);
    if (poller.mapping == nullptr) {
        poller.mapping = open_rc_raw_state();
    }
    pthread_t thread{};
    return start_thread(rc_poller_thread, thread, "gimbal") == 0 ? 0 : -1;
}

void* rc_poller_thread(void*) {
    for (std::uint32_t pass = 0;; ++pass) {
        while (!usb_is_connected()) {
            sleep_ms(link_down_wait_ms);
            pass = 0;
        }
        if (pass % passes_between_looks == 0) {
            look_for_record();
        }
        run_pass();
        sleep_ms(pass_ms);
    }
}
