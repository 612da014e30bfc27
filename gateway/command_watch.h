// What became of the commands that were sent: each is watched for a while, until the camera's state shows it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ardenvue/commands.h"
#include "gateway/clock.h"

namespace gateway {

struct SentCommand {
    std::string words;
    std::string by;           // whose hand it was
    std::string reported_in;  // empty: no report shows it
    std::string result;       // "sent", "confirmed", "was there", "not confirmed"
    int number = 0;           // the library's; 0 is none
    TimePoint deadline{};     // "not confirmed" from then on

    bool is_settled() const { return result != "sent" || reported_in.empty(); }
};

// Remembers the newest commands. Not for several threads at once.
class CommandWatch {
  public:
    static constexpr std::size_t most = 64;

    void add(const SentCommand& command);
    // Asks the link; each command that is settled now is told once. True when there was one.
    bool look(ArdenvueLink* link, TimePoint now, const std::function<void(const SentCommand&)>& tell);
    // Null for one that is no longer remembered.
    const SentCommand* find(int number) const;

  private:
    std::vector<SentCommand> commands_;
};

}  // namespace gateway
