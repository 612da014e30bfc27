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

using namespace std::chrono_literals;

// While the link to the remote controller is up, a line comes every second.
constexpr auto line_silence = 2500ms;

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
        ArdenvueCommand command;
        char reason[ARDENVUE_REASON_SIZE];
        if (line.find('\0') != std::string::npos) {
            return path + ", line " + std::to_string(number) + ": not of letters alone";
        }
        if (ardenvue_command_check(line.c_str(), &command, reason, sizeof reason) < 0) {
            return path + ", line " + std::to_string(number) + ": " + reason;
        }
        steps_.push_back({command, {}});
        command_count_ += 1;
    }
    return {};
}

bool ScriptPlayer::step(ArdenvueLink* link) {
    const auto now = Clock::now();
    if (in_progress()) {
        const PlayedCommand& playing = played_.back();
        const int confirmation = ardenvue_confirm(link, playing.number, 0);
        if (confirmation == ARDENVUE_ERROR_NOT_REPORTED) {
            return end(Outcome::not_reported);
        }
        if (confirmation > 0) {
            return end(Outcome::confirmed);
        }
        return now - playing.sent > patience_ && end(Outcome::not_confirmed);
    }
    if (next_ == steps_.size() || now < not_before_) {
        return false;
    }
    return start(link);
}

bool ScriptPlayer::start(ArdenvueLink* link) {
    const auto now = Clock::now();
    const Step& next = steps_[next_];
    if (next.command.words[0] == '\0') {
        not_before_ = now + next.wait;
        next_ += 1;
        return false;
    }
    if (ready_since_ == Clock::time_point{}) {
        ready_since_ = now;
    }
    const auto age = std::chrono::nanoseconds{ardenvue_link_report_age(link, ARDENVUE_STATUS_LINE)};
    const bool is_heard = age >= 0s && age <= line_silence;
    const int number = is_heard ? ardenvue_send(link, next.command.words) : 0;
    const bool sent = number > 0;
    if (!sent && now - ready_since_ <= patience_) {
        return false;
    }
    ready_since_ = {};
    played_.push_back({next.command, number, Outcome::waiting, now, now});
    next_ += 1;
    return !sent && end(Outcome::not_sent);
}

bool ScriptPlayer::end(Outcome outcome) {
    played_.back().outcome = outcome;
    played_.back().ended = Clock::now();
    return true;
}

}  // namespace ctl
