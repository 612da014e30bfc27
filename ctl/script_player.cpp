#include "ctl/script_player.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include "ctl/seconds.h"
#include "formats/nearest_word.h"

namespace ctl {
namespace {

// The number of a line "wait SECONDS"; none for another line, and for a wait that is none.
std::optional<double> wait_of(const std::string& line) {
    std::istringstream stream{line};
    std::string word;
    std::string number;
    std::string more;
    stream >> word >> number;
    if (word != "wait" || stream >> more) {
        return std::nullopt;
    }
    const auto value = formats::number_of(number);
    return value && *value >= 0 && *value <= 3600 ? value : std::nullopt;
}

}  // namespace

const char* outcome_text(Outcome outcome) {
    switch (outcome) {
        case Outcome::waiting:
            return "waiting";
        case Outcome::confirmed:
            return "confirmed";
        case Outcome::not_reported:
            return "sent";
        case Outcome::not_confirmed:
            return "not confirmed";
        case Outcome::not_sent:
            return "not sent";
    }
    return "";
}

std::string ScriptPlayer::load(const std::string& path) {
    std::ifstream file{path};
    if (!file) {
        return "can't read " + path + ": " + std::strerror(errno);
    }
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        number += 1;
        line.resize(std::min(line.size(), line.find('#')));
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        if (const auto wait = wait_of(line)) {
            steps_.push_back({{}, seconds(*wait)});
            continue;
        }
        ParsedCommand parsed = parse_command(line);
        if (!parsed.problem.empty()) {
            return path + ", line " + std::to_string(number) + ": " + parsed.problem;
        }
        steps_.push_back({std::move(parsed.command), {}});
        command_count_ += 1;
    }
    return {};
}

bool ScriptPlayer::step(ServiceLink& link, const CameraView& view) {
    const auto now = Clock::now();
    if (in_progress()) {
        const PlayedCommand& playing = played_.back();
        const Shown shown = playing.command.row->shown;
        if (shown == nullptr) {
            return end(Outcome::not_reported);
        }
        if (shown(before_, view.since(playing.sent), playing.command)) {
            return end(Outcome::confirmed);
        }
        return now - playing.sent > patience_ && end(Outcome::not_confirmed);
    }
    if (next_ == steps_.size() || now < not_before_) {
        return false;
    }
    return start(link, view);
}

bool ScriptPlayer::start(ServiceLink& link, const CameraView& view) {
    const auto now = Clock::now();
    const Step& next = steps_[next_];
    if (next.command.row == nullptr) {
        not_before_ = now + next.wait;
        next_ += 1;
        return false;
    }
    if (ready_since_ == Clock::time_point{}) {
        ready_since_ = now;
    }
    const bool sent = link.up() && view.line && link.send_command(next.command.json);
    if (!sent && now - ready_since_ <= patience_) {
        return false;
    }
    ready_since_ = {};
    before_ = view;
    played_.push_back({next.command, Outcome::waiting, now, now});
    next_ += 1;
    return !sent && end(Outcome::not_sent);
}

bool ScriptPlayer::end(Outcome outcome) {
    played_.back().outcome = outcome;
    played_.back().ended = Clock::now();
    return true;
}

}  // namespace ctl
