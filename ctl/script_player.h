// A scripted main application: commands by their words, one a line, each sent when the one before has been
// confirmed by the camera's state.
//
//   # a comment
//   record start
//   wait 2            (seconds)
//   iso 400
#pragma once

#include <string>
#include <vector>

#include "ardenvue/client.h"
#include "ctl/seconds.h"

namespace ctl {

enum class Outcome { waiting, confirmed, not_reported, not_confirmed, not_sent };
const char* outcome_text(Outcome outcome);

struct PlayedCommand {
    ArdenvueCommand command;
    int number;  // of the link
    Outcome outcome;
    Clock::time_point sent;
    Clock::time_point ended;
};

class ScriptPlayer {
  public:
    // Reads and checks the whole file. Empty when all of it is right; else what is wrong, with the line.
    std::string load(const std::string& path);

    // A command that the state does not show within this time counts as not confirmed.
    void set_patience(Clock::duration patience) { patience_ = patience; }

    // Goes as far as it can: sends the next command, or looks whether the last one is shown. Call it after
    // each report, and every few ms. True when a command came to its end by this call: played().back().
    bool step(ArdenvueLink* link);

    bool finished() const { return next_ == steps_.size() && !in_progress() && Clock::now() >= not_before_; }
    bool in_progress() const { return !played_.empty() && played_.back().outcome == Outcome::waiting; }
    const std::vector<PlayedCommand>& played() const { return played_; }
    // Commands of the script, played or not.
    std::size_t command_count() const { return command_count_; }

  private:
    struct Step {
        ArdenvueCommand command{};  // without words: a wait
        Clock::duration wait{};
    };

    bool end(Outcome outcome);
    bool start(ArdenvueLink* link);

    std::vector<Step> steps_;
    std::size_t next_ = 0;
    std::size_t command_count_ = 0;
    Clock::duration patience_{};
    Clock::time_point not_before_{};
    Clock::time_point ready_since_{};
    std::vector<PlayedCommand> played_;
};

}  // namespace ctl
