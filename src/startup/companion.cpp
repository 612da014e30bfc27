#include "startup/companion.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {
// The first process id that pidof prints, 0 when it prints none; nothing when it can't be run.
std::optional<unsigned long> companion_process_id() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output{popen("pidof linkagent", "re"), pclose};
    if (!output) {
        return std::nullopt;
    }
    char line[10] = {};
    [[maybe_unused]] const char* read = std::fgets(line, sizeof line, output.get());
    return std::strtoul(line, nullptr, 10);
}
}  // namespace

void keep_companion_running() {
    if (companion_process_id() == 0UL) {
        [[maybe_unused]] const int result = std::system("./linkagent &");
    }
}
