// The client's scripts and commands in words. What the client takes for a command the dispatcher must run,
// and the simulated camera understand; said again in the client's own words it is the same command.
#include <unistd.h>

#include "ardenvue/client.h"
#include "camera_end.h"
#include "ctl/script_player.h"
#include "file.h"
#include "fuzz.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::File file;
    const std::string text(data, data + size);
    ctl::ScriptPlayer player;
    const std::string problem = player.load(file.holding({data, size}));

    std::size_t commands = 0;
    std::size_t wrong_lines = 0;
    for (std::size_t at = 0; at < text.size() && wrong_lines == 0;) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string line = text.substr(at, end - at);
        at = end + 1;
        line.resize(std::min(line.size(), line.find('#')));
        if (line.find_first_not_of(" \t\r") == std::string::npos || line.find("wait") != std::string::npos) {
            continue;
        }
        ArdenvueCommand command;
        ArdenvueCommand again;
        if (line.find('\0') != std::string::npos ||
            ardenvue_command_check(line.c_str(), &command, nullptr, 0) < 0) {
            ++wrong_lines;
            continue;
        }
        ++commands;
        const std::string json = command.json;
        fuzz::require(ardenvue_command_check(command.words, &again, nullptr, 0) == 0 && json == again.json,
                      line);
        const auto meanings = fuzz::dispatch("!" + json);
        const bool silent =
            json.find("movement") != std::string::npos || json.find("orientation") != std::string::npos;
        fuzz::require(silent == meanings.empty(), json + " sends another number of packets");
        for (const std::string& meaning : meanings) {
            fuzz::require(!meaning.starts_with("COMPLAINT"), json + ": " + meaning);
        }
    }
    if (text.find("wait") == std::string::npos) {
        fuzz::require(problem.empty() == (wrong_lines == 0), "problem: " + problem);
        fuzz::require(player.command_count() == commands, "commands of the script");
    }
    return 0;
}
