#include "gateway/command_watch.h"

#include <algorithm>

namespace gateway {
namespace {

const char* result_of(int confirmation) {
    return confirmation == ARDENVUE_WAS_THERE ? "was there" : "confirmed";
}

}  // namespace

void CommandWatch::add(const SentCommand& command) {
    if (commands_.size() == most) {
        commands_.erase(commands_.begin());
    }
    commands_.push_back(command);
}

bool CommandWatch::look(ArdenvueLink* link, TimePoint now,
                        const std::function<void(const SentCommand&)>& tell) {
    bool has_settled = false;
    for (SentCommand& command : commands_) {
        if (command.is_settled()) {
            continue;
        }
        if (const int confirmation = ardenvue_confirm(link, command.number, 0); confirmation > 0) {
            command.result = result_of(confirmation);
        } else if (confirmation != ARDENVUE_ERROR_TIMEOUT || now >= command.deadline) {
            command.result = "not confirmed";
        }
        if (command.is_settled()) {
            has_settled = true;
            tell(command);
        }
    }
    return has_settled;
}

const SentCommand* CommandWatch::find(int number) const {
    const auto found = std::ranges::find(commands_, number, &SentCommand::number);
    return found == commands_.end() ? nullptr : &*found;
}

}  // namespace gateway
