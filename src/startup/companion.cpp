#include "startup/companion.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "platform/thread.h"

namespace {
std::atomic<bool> is_checking;
sigset_t childrens_signals;  // blocked ones, which children inherit; written while no check runs
bool absence_was_said;       // by the shell; of the checking thread

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

// A shell that finds no companion says so. Once is enough: it is asked again when there is one.
void start_companion() {
    const bool is_absent = access("./linkagent", X_OK) != 0;
    if (!is_absent || !absence_was_said) {
        [[maybe_unused]] const int result = std::system("./linkagent &");
    }
    absence_was_said = is_absent;
}

void* check(void*) {
    pthread_detach(pthread_self());
    pthread_sigmask(SIG_SETMASK, &childrens_signals, nullptr);
    if (companion_process_id() == 0UL) {
        start_companion();
    }
    is_checking = false;
    return nullptr;
}
}  // namespace

void keep_companion_running() {
    if (is_checking.exchange(true)) {
        return;
    }
    pthread_sigmask(SIG_SETMASK, nullptr, &childrens_signals);
    pthread_t thread{};
    if (start_thread(check, thread, "companion") != 0) {
        is_checking = false;
    }
}
