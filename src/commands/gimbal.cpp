#include "commands/gimbal.h"

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "commands/packets.h"
#include "io/packet_run.h"
#include "platform/relaxed.h"
#include "state/camera_codes.h"
#include "state/telemetry.h"

namespace {

using camera_codes::find;

void send_center() {
    std::fputs("Gimbal set center position\n", stderr);
    PacketRun{}.send(packets::position_center);
}

void send_next() {
    std::fputs("Gimbal set next position\n", stderr);
    PacketRun{}.send(packets::position_next);
}

struct Position {
    const char* text;
    const char* line;
    void (*send_turned)();  // the attitude is in the range of the selfie position
    void (*send_straight)();
};

constexpr Position positions[] = {
    {"normal", "Gimbal set center position\n", send_next, send_center},
    {"selfie", "Gimbal set selfie position\n", send_center, send_next},
};

struct LockState {
    const char* text;
    const char* line;
    std::uint8_t flag;
};

constexpr LockState lock_states[] = {
    {"lock", "Gimbal orientation lock\n", 1},
    {"unlock", "Gimbal orientation unlock\n", 0},
};

struct Mode {
    const char* text;
    std::uint8_t select;
    std::uint8_t option;
};

constexpr Mode modes[] = {{"tiltlocked", 0x02, 0x01}, {"fpv", 0x01, 0x00}, {"follow", 0x02, 0x00}};

bool is_turned(std::int16_t attitude) {
    return attitude >= -229 && attitude <= -131;
}

}  // namespace

void gimbal_set_position(const char* text) {
    if (const Position* position = find(positions, &Position::text, text)) {
        std::fputs(position->line, stderr);
        const bool turned = is_turned(load_relaxed(get_telemetry_state().attitude[0]));
        (turned ? position->send_turned : position->send_straight)();
    }
}

void gimbal_set_orientation_lock(const char* text) {
    if (const LockState* state = find(lock_states, &LockState::text, text)) {
        std::fputs(state->line, stderr);
        store_relaxed(get_telemetry_state().gimbal_orientation_lock, state->flag);
    }
}

void gimbal_calibrate(const char* action) {
    if (std::string_view{action} != "calibrate") {
        return;
    }
    std::fputs("Gimbal full calibrate\n", stderr);
    PacketRun run;
    run.send(packets::calibration_1);
    run.send(packets::calibration_2);
    run.send(packets::calibration_3);
}

void gimbal_set_mode(const char* text) {
    std::fprintf(stderr, "Gimbal set mode %s\n", text);
    if (const Mode* mode = find(modes, &Mode::text, text)) {
        PacketRun run;
        run.send(packets::mode_select, {mode->select});
        run.send(packets::mode_option, {0x00, 0x04, 0x01, mode->option});
    }
}

void gimbal_set_follow_speed(const char* speed) {
    std::fprintf(stderr, "Gimbal set follow mode %s\n", speed);
    const bool slow = std::string_view{speed} == "slow";
    PacketRun{}.send(packets::follow_speed,
                     {0x00, 0x05, 0x01, static_cast<std::uint8_t>(slow ? 0x02 : 0x00)});
}
