#include "commands/dispatcher.h"

#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string_view>

#include <cjson/cJSON.h>

#include "commands/camera_capture.h"
#include "commands/camera_exposure.h"
#include "commands/camera_video.h"
#include "commands/gimbal.h"
#include "commands/resolutions.h"
#include "commands/text_number.h"
#include "state/rc_poller.h"

namespace {

// The members of a command; null when absent or no string.
struct Command {
    const char* cmd;
    const char* name;
    const char* param;
    const char* value;
    const char* value2;
};

using Member = const char* Command::*;

constexpr Member param = &Command::param;
constexpr Member value = &Command::value;
constexpr Member value2 = &Command::value2;

bool is(const char* member, const char* text) {
    return member != nullptr && std::string_view{member} == text;
}

void set_video_resolution(const Command& command) {
    if (const auto resolution = find_resolution(command.param)) {
        camera_set_video_resolution(resolution->width, resolution->height, resolution->frame_rate);
    }
}

void set_focus_point(const Command& command) {
    camera_set_focus_point(to_float(command.value), to_float(command.value2));
}

// A row runs when "cmd" is its word, "param" its sub-command (where it has one) and the members that its
// operation reads are strings. A command with a missing argument is no command: nothing in the camera changes
// by a mistake of the sender.
struct Row {
    const char* cmd;
    const char* sub_command;
    Member needed[2];
    void (*run)(const Command& command);
};

template <auto operation, Member argument>
constexpr Row row(const char* cmd, const char* sub_command = nullptr) {
    return {cmd, sub_command, {argument}, [](const Command& command) { operation(command.*argument); }};
}

constexpr Row rows[] = {
    {"record", "start", {}, [](const Command&) { camera_record(1); }},
    {"record", "stop", {}, [](const Command&) { camera_record(0); }},
    {"shot", nullptr, {}, [](const Command&) { camera_shot(); }},
    row<camera_set_mode, value>("camera", "mode"),
    row<gimbal_set_position, param>("position", "normal"),
    row<gimbal_set_position, param>("position", "selfie"),
    row<gimbal_set_orientation_lock, param>("orientation", "lock"),
    row<gimbal_set_orientation_lock, param>("orientation", "unlock"),
    row<camera_set_focus_type, value>("focus", "type"),
    {"focus", "point", {value, value2}, set_focus_point},
    {"focus", "manual", {value}, [](const Command& c) { camera_set_manual_focus(to_int(c.value)); }},
    row<camera_set_video_mode, param>("video_mode"),
    row<camera_set_shutter, param>("shutter"),
    row<camera_set_aperture, param>("aperture"),
    row<camera_set_iso, param>("iso"),
    row<camera_set_ev, param>("ev"),
    {"wb", nullptr, {param}, [](const Command& c) { camera_set_white_balance(c.param, c.value); }},
    row<camera_set_color, param>("color"),
    {"video_resolution", nullptr, {param}, set_video_resolution},
    row<camera_set_transmission_mode, param>("video_transmission"),
    row<camera_set_aspect_ratio, param>("video_aspect"),
    row<camera_set_shot_mode, param>("shotmode"),
    row<camera_set_antiflicker, param>("antiflicker"),
    row<camera_set_video_standard, param>("video_std"),
    row<gimbal_calibrate, param>("horizont"),
    {"resetcamera", nullptr, {}, [](const Command&) { camera_reset(); }},
    row<camera_format, param>("format"),
    row<camera_set_histogram, param>("histogram"),
    row<gimbal_set_mode, value>("gimbal", "mode"),
    row<gimbal_set_follow_speed, value>("gimbal", "follow"),
};
static_assert(std::size(rows) == 30);

bool applies(const Row& row, const Command& command) {
    if (!is(command.cmd, row.cmd) || (row.sub_command != nullptr && !is(command.param, row.sub_command))) {
        return false;
    }
    for (const Member needed : row.needed) {
        if (needed != nullptr && command.*needed == nullptr) {
            return false;
        }
    }
    return true;
}

void set_movement(const Command& command) {
    if (!is(command.name, "movement")) {
        return;
    }
    if (is(command.value, "abs")) {
        set_movement_mode(MovementMode::absolute);
    } else if (is(command.value, "rel")) {
        set_movement_mode(MovementMode::relative);
    }
}

void run(const Command& command) {
    if (is(command.cmd, "set")) {
        set_movement(command);
        return;
    }
    for (const Row& row : rows) {
        if (applies(row, command)) {
            row.run(command);
        }
    }
}

}  // namespace

void command_dispatch(const char* datagram) {
    if (datagram[0] != '!') {
        return;
    }
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree{cJSON_Parse(datagram + 1), cJSON_Delete};
    // An array has items too, but none of them is a member.
    if (!cJSON_IsObject(tree.get())) {
        return;
    }
    const auto text = [&tree](const char* name) {
        return cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), name));
    };
    run({text("cmd"), text("name"), text("param"), text("value"), text("value2")});
}
