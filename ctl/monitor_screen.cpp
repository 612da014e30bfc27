#include "ctl/monitor_screen.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <ncurses.h>

#include "ctl/seconds.h"

namespace ctl {
namespace {

// Everything fits into 80 columns and 24 rows; what is taller has a taller histogram and more of the script.
constexpr int label_width = 16;
constexpr int column_width = 39;
constexpr int blocks_height = 15;
constexpr int least_script_height = 4;
constexpr int least_histogram_height = 2;
constexpr int most_histogram_height = 8;

void put(int row, int column, const std::string& text) {
    mvaddnstr(row, column, text.c_str(), std::max(0, COLS - column));
}

void put_title(int row, int column, const std::string& text) {
    attron(A_BOLD);
    put(row, column, text);
    attroff(A_BOLD);
}

std::string decimal(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

struct Field {
    std::string label;
    std::string text;
};

// How old a group of values is, for its title; empty before the first.
using Age = std::optional<Clock::duration>;

// Draws at the row and goes on to the one after it. What is not live is dimmed.
void put_block(int& row, int column, const char* title, const Age& age, bool live,
               const std::vector<Field>& fields) {
    put_title(row, column, title);
    attron(live ? A_NORMAL : A_DIM);
    const std::string age_text = age ? decimal(in_seconds(*age), 1) + " s old" : "nothing yet";
    put(row++, column + label_width, age_text);
    for (const Field& field : fields) {
        put(row, column + 1, field.label);
        put(row++, column + label_width, field.text.substr(0, column_width - label_width - 1));
    }
    attroff(A_DIM);
}

std::string text(const ArdenvueLink* line, const char* key) {
    return ardenvue_link_text(line, key);
}

std::vector<Field> video_fields(const MonitorState& state) {
    if (!state.ring_problem.empty()) {
        // All of it, in the rows of the fields.
        std::vector<Field> rows(3);
        for (std::size_t row = 0; row < rows.size(); ++row) {
            const std::size_t begin = row * (column_width - 2);
            rows[row].label =
                begin < state.ring_problem.size() ? state.ring_problem.substr(begin, column_width - 2) : "";
        }
        return rows;
    }
    return {{"picture", state.picture_size},
            {"rate", decimal(state.frames_per_second, 1) + "/s, " + bit_rate_text(state.bits_per_second)},
            {"frames", std::to_string(state.ring.frames) + ", missed " + std::to_string(state.ring.missed)}};
}

std::vector<Field> camera_fields(const ArdenvueLink* line, const ArdenvueGimbalFocus& record) {
    return {{"model", text(line, "camera_model")},
            {"mode", text(line, "camera_mode")},
            {"recording", record.recording ? "yes, " + text(line, "rec_time") : "no"},
            {"time left", text(line, "rec_time_left")},
            {"card", text(line, "sd") + ", " + text(line, "shots_left") + " photos"},
            {"recordings", text(line, "format")},
            {"photos", text(line, "shot_mode") + " " + text(line, "ratio")},
            {"standard", text(line, "video_std") + ", " + text(line, "antiflicker")}};
}

std::vector<Field> exposure_fields(const ArdenvueLink* line) {
    return {{"program", text(line, "image_mode")},
            {"iso", text(line, "iso") + ", set " + text(line, "iso_set")},
            {"shutter", text(line, "shutter") + ", set " + text(line, "shutter_set")},
            {"aperture", "f/" + text(line, "aperture")},
            {"ev", text(line, "ev")},
            {"white balance", text(line, "wb") + ", " + text(line, "wb_temp") + " K"},
            {"colour", text(line, "color_mode")}};
}

std::vector<Field> aircraft_fields(const ArdenvueLink* line, const ArdenvueGimbalFocus& record) {
    std::string angles;
    for (const std::int16_t angle : {record.heading, record.tilt, record.roll}) {
        angles += std::to_string(angle) + " ";
    }
    const std::string type{ardenvue_focus_type_text(record.focus_type)};
    return {{"battery", text(line, "battery_level") + "%, temperature " + text(line, "battery_temp")},
            {"voltage", text(line, "voltage")},
            {"gimbal", angles + (record.orientation_lock ? "locked" : "")},
            {"focus", record.focus_reported
                          ? type + " at " + decimal(record.focus_x, 3) + ", " + decimal(record.focus_y, 3)
                          : ""},
            {"focus position", record.focus_reported ? std::to_string(record.focus_position) + " of " +
                                                           std::to_string(record.focus_max)
                                                     : ""}};
}

void draw_histogram(int row, int height, const MonitorState& state) {
    ArdenvueHistogram histogram;
    const bool valid = ardenvue_link_histogram(state.link, &histogram) == 0;
    put_title(row++, 1, valid ? "histogram" : "histogram: off");
    if (!valid) {
        return;
    }
    const std::span bins{histogram.bins};
    const int highest = std::max<int>(1, *std::max_element(bins.begin(), bins.end()));
    for (int level = height; level > 0; --level, ++row) {
        for (std::size_t i = 0; i < bins.size(); ++i) {
            // Every bin that is not empty shows at the bottom.
            const int bar = (bins[i] * height + highest - 1) / highest;
            const int column = 1 + static_cast<int>(i);
            if (bar >= level && column < COLS) {
                mvaddch(row, column, ' ' | A_REVERSE);
            }
        }
    }
}

// The newest commands, as many as there is room for.
void draw_script(int row, int height, const ScriptPlayer& player) {
    const auto& played = player.played();
    put_title(row, 1,
              "script: " + std::to_string(played.size()) + " of " + std::to_string(player.command_count()) +
                  " commands");
    const std::size_t shown = std::min(played.size(), static_cast<std::size_t>(std::max(0, height - 1)));
    for (std::size_t i = played.size() - shown; i < played.size(); ++i) {
        put(++row, 2, played_text(played[i]));
    }
}

void draw_title_line(const MonitorState& state) {
    std::string text = " link " + std::string{state.link_up() ? "up" : "down"} + "   " +
                       (state.service.empty() ? "no service heard yet" : "service at " + state.service) +
                       "   " + decimal(state.running_seconds, 0) + " s";
    text.resize(static_cast<std::size_t>(std::max(0, COLS)), ' ');
    attron(A_REVERSE);
    put(0, 0, text);
    put(0, std::max(0, COLS - 8), "q: quit ");
    attroff(A_REVERSE);
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
    const ArdenvueLink* const line = state.link;
    const ArdenvueGimbalFocus& record = state.record;
    erase();
    draw_title_line(state);
    int left = 1;
    const auto is_live = [](const Age& age) { return age && *age <= live_limit; };
    const bool up = state.link_up();  // reports that come without pictures are not fresh
    const Age line_age = state.age(ARDENVUE_STATUS_LINE);
    const Age record_age = state.age(ARDENVUE_GIMBAL_FOCUS);
    const Age frame_age = state.frame_time ? Age{state.now - *state.frame_time} : Age{};
    put_block(left, 1, "video", frame_age, is_live(frame_age), video_fields(state));
    put_block(left, 1, "camera", line_age, up && is_live(line_age), camera_fields(line, record));
    int right = 1;
    put_block(right, 1 + column_width, "exposure", line_age, up && is_live(line_age), exposure_fields(line));
    put_block(right, 1 + column_width, "aircraft", record_age, up && is_live(record_age),
              aircraft_fields(line, record));
    const int room = LINES - blocks_height;
    const int script_height =
        state.player == nullptr ? 0 : std::max(least_script_height, room - most_histogram_height - 2);
    const int histogram_height =
        std::clamp(room - script_height - 2, least_histogram_height, most_histogram_height);
    draw_histogram(blocks_height, histogram_height, state);
    if (state.player != nullptr) {
        draw_script(blocks_height + histogram_height + 1, script_height, *state.player);
    }
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
