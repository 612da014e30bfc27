#include "tools/monitor_screen.h"

#include <ncurses.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace ctl {
namespace {

constexpr int label_width = 14;
constexpr int column_width = 38;
constexpr int histogram_height = 8;

void put(int row, int column, const std::string& text) {
    mvaddnstr(row, column, text.c_str(), std::max(0, COLS - column));
}

struct Field {
    std::string label;
    std::string text;
};

void put_block(int& row, int column, const char* title, const std::vector<Field>& fields) {
    attron(A_BOLD);
    put(row++, column, title);
    attroff(A_BOLD);
    for (const Field& field : fields) {
        put(row, column + 1, field.label);
        put(row++, column + label_width, field.text.substr(0, column_width - label_width - 1));
    }
    row += 1;
}

std::string join(std::initializer_list<std::string_view> texts) {
    std::string joined;
    for (const std::string_view text : texts) {
        joined += text;
    }
    return joined;
}

std::string decimal(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::vector<Field> link_fields(const MonitorState& state) {
    return {{"link", state.link_up ? "up" : "down"},
            {"service", state.service.empty() ? "not heard yet" : state.service}};
}

std::vector<Field> video_fields(const MonitorState& state) {
    if (!state.ring_problem.empty()) {
        return {{"ring", state.ring_problem}};
    }
    return {{"picture", state.picture_size},
            {"frames/s", decimal(state.frames_per_second, 1)},
            {"rate", bit_rate_text(state.bits_per_second)},
            {"frames", std::to_string(state.ring.frames)},
            {"missed", std::to_string(state.ring.missed)}};
}

std::vector<Field> camera_fields(const MonitorState& state) {
    const StatusLine line = state.view.line.value_or(StatusLine{});
    const bool recording = state.view.gimbal_focus && state.view.gimbal_focus->recording;
    return {{"model", std::string{line.value("camera_model")}},
            {"mode", std::string{line.value("camera_mode")}},
            {"recording", recording ? join({"yes, ", line.value("rec_time")}) : "no"},
            {"time left", std::string{line.value("rec_time_left")}},
            {"card", join({line.value("sd"), ", ", line.value("shots_left"), " photos"})},
            {"recordings", std::string{line.value("format")}},
            {"photos", join({line.value("shot_mode"), " ", line.value("ratio")})},
            {"standard", join({line.value("video_std"), ", ", line.value("antiflicker")})}};
}

std::vector<Field> exposure_fields(const MonitorState& state) {
    const StatusLine line = state.view.line.value_or(StatusLine{});
    return {{"program", std::string{line.value("image_mode")}},
            {"iso", join({line.value("iso"), " (set ", line.value("iso_set"), ")"})},
            {"shutter", join({line.value("shutter"), " (set ", line.value("shutter_set"), ")"})},
            {"aperture", join({"f/", line.value("aperture")})},
            {"ev", std::string{line.value("ev")}},
            {"white balance", join({line.value("wb"), " ", line.value("wb_temp"), " K"})},
            {"colour", std::string{line.value("color_mode")}}};
}

std::vector<Field> battery_fields(const MonitorState& state) {
    const StatusLine line = state.view.line.value_or(StatusLine{});
    return {{"level", join({line.value("battery_level"), " %"})},
            {"voltage", std::string{line.value("voltage")}},
            {"temperature", std::string{line.value("battery_temp")}}};
}

std::vector<Field> gimbal_fields(const MonitorState& state) {
    const GimbalFocus record = state.view.gimbal_focus.value_or(GimbalFocus{});
    std::string angles;
    for (const std::int16_t angle : record.attitude) {
        angles += std::to_string(angle) + " ";
    }
    return {{"angles", angles}, {"direction", record.orientation_lock ? "locked" : "follows"}};
}

std::vector<Field> focus_fields(const MonitorState& state) {
    const GimbalFocus record = state.view.gimbal_focus.value_or(GimbalFocus{});
    if (!record.focus_valid) {
        return {{"type", "not reported yet"}};
    }
    return {{"type", std::string{record.focus_mode_text()}},
            {"point", decimal(record.focus_point_x, 3) + ", " + decimal(record.focus_point_y, 3)},
            {"position", std::to_string(record.focus_position) + " of " + std::to_string(record.focus_max)}};
}

void draw_histogram(int& row, int column, const MonitorState& state) {
    attron(A_BOLD);
    put(row++, column, "histogram");
    attroff(A_BOLD);
    const bool valid = state.view.histogram && state.view.line && state.view.line->value("histogram") == "1";
    if (!valid) {
        put(row, column + 1, "off");
        row += 2;
        return;
    }
    const auto& bins = state.view.histogram->bins;
    const int highest = std::max<int>(1, *std::max_element(bins.begin(), bins.end()));
    for (int level = histogram_height; level > 0; --level, ++row) {
        for (std::size_t i = 0; i < bins.size(); ++i) {
            // Every bin that is not empty shows at the bottom.
            const int height = (bins[i] * histogram_height + highest - 1) / highest;
            const int x = column + 1 + static_cast<int>(i);
            if (height >= level && x < COLS) {
                mvaddch(row, x, ' ' | A_REVERSE);
            }
        }
    }
    row += 1;
}

void draw_script(int row, const MonitorState& state) {
    if (state.player == nullptr) {
        return;
    }
    const auto& played = state.player->played();
    attron(A_BOLD);
    put(row++, 1,
        "script, " + std::to_string(played.size()) + " of " + std::to_string(state.player->command_count()));
    attroff(A_BOLD);
    const int room = std::max(0, LINES - 1 - row);
    const std::size_t shown = std::min(played.size(), static_cast<std::size_t>(room));
    for (std::size_t i = played.size() - shown; i < played.size(); ++i) {
        put(row++, 2, played_text(played[i]));
    }
}

}  // namespace

MonitorScreen::MonitorScreen() {
    initscr();
    cbreak();
    noecho();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    curs_set(0);
}

MonitorScreen::~MonitorScreen() {
    endwin();
}

void MonitorScreen::draw(const MonitorState& state) {
    erase();
    attron(A_REVERSE);
    put(0, 0,
        " ardenvue  " + decimal(state.running_seconds, 0) + " s" +
            std::string(static_cast<std::size_t>(COLS), ' '));
    attroff(A_REVERSE);
    put(0, std::max(0, COLS - 9), "q: quit ");
    int left = 2;
    put_block(left, 1, "link", link_fields(state));
    put_block(left, 1, "video", video_fields(state));
    put_block(left, 1, "camera", camera_fields(state));
    int right = 2;
    const int column = 1 + column_width;
    put_block(right, column, "exposure", exposure_fields(state));
    put_block(right, column, "battery", battery_fields(state));
    put_block(right, column, "gimbal", gimbal_fields(state));
    put_block(right, column, "focus", focus_fields(state));
    int below = std::max(left, right);
    draw_histogram(below, 1, state);
    draw_script(below, state);
    refresh();
}

bool MonitorScreen::quit_requested() {
    bool quit = false;
    for (int key = getch(); key != ERR; key = getch()) {
        quit = quit || key == 'q' || key == 'Q';
        if (key == KEY_RESIZE) {
            // Terminals move what was drawn about in ways of their own.
            clearok(curscr, TRUE);
        }
    }
    return quit;
}

}  // namespace ctl
