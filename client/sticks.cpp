#include "ardenvue/sticks.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "ardenvue.h"
#include "client/guarded.h"
#include "client/stick_guard.h"
#include "client/stick_record.h"

struct ArdenvueSticks {
    explicit ArdenvueSticks(const char* name) : record{name} {}

    client::StickRecord record;
    FileDescriptor guard;
    bool is_guard_gone = false;
};

namespace {

using client::StickInputs;

constexpr int start_patience_ms = 5000;

// Whether the guard took the word; one that is gone or does not listen doesn't.
bool tell_guard(ArdenvueSticks& sticks, char word) {
    return send(sticks.guard.get(), &word, 1, MSG_NOSIGNAL | MSG_DONTWAIT) == 1;
}

// Starts the guard, which leaves at once for a process of its own. An errno, or 0.
int spawn_guard(const char* path, const char* record_name, int its_end) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, its_end, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    sigset_t all{};
    sigfillset(&all);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setsigmask(&attributes, &all);
    char* arguments[] = {const_cast<char*>(path), const_cast<char*>(record_name), nullptr};
    char* environment[] = {nullptr};
    pid_t child = 0;
    const int error = posix_spawn(&child, path, &actions, &attributes, arguments, environment);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    while (error == 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
    return error;
}

bool is_ready(int guard) {
    pollfd readable{guard, POLLIN, 0};
    char word = '\0';
    while (poll(&readable, 1, start_patience_ms) < 0 && errno == EINTR) {
    }
    return recv(guard, &word, 1, MSG_DONTWAIT) == 1 && word == client::guard_is_ready;
}

int start_guard(ArdenvueSticks& sticks, const char* path, const char* record_name, std::string& problem) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        problem = std::string{"stick guard: "} + std::strerror(errno);
        return ARDENVUE_ERROR_SYSTEM;
    }
    sticks.guard = FileDescriptor{ends[0]};
    const FileDescriptor its_end{ends[1]};
    if (const int error = spawn_guard(path, record_name, its_end.get()); error != 0) {
        problem = std::string{"stick guard "} + path + ": " + std::strerror(error);
        return ARDENVUE_ERROR_GUARD;
    }
    return 0;
}

// -0.0 is 0 too: the service takes what compares equal to 0 for no motion.
double held(double input) {
    return std::isnan(input) ? 0 : std::clamp(input, -ARDENVUE_STICK_LIMIT, ARDENVUE_STICK_LIMIT);
}

// What the guard said since the last call.
bool was_let_go(const ArdenvueSticks& sticks) {
    char words[256];
    const ssize_t count = recv(sticks.guard.get(), words, sizeof words, MSG_DONTWAIT);
    return count > 0 && std::memchr(words, client::guard_let_go, static_cast<std::size_t>(count)) != nullptr;
}

int open_sticks(std::unique_ptr<ArdenvueSticks>& sticks, const char* name, const char* guard_path,
                std::string& problem) {
    sticks = std::make_unique<ArdenvueSticks>(name);
    if (!sticks->record.write({})) {
        problem = sticks->record.problem();
        return ARDENVUE_ERROR_SYSTEM;
    }
    if (const int code = start_guard(*sticks, guard_path, name, problem); code != 0) {
        return code;
    }
    if (!is_ready(sticks->guard.get())) {
        problem = std::string{"stick guard "} + guard_path + ": it ended at once";
        return ARDENVUE_ERROR_GUARD;
    }
    return 0;
}

}  // namespace

int ardenvue_sticks_open(ArdenvueSticks** sticks, const char* record_name, const char* guard_path,
                         char* reason, std::size_t reason_size) {
    if (sticks == nullptr) {
        return ARDENVUE_ERROR_ARGUMENT;
    }
    *sticks = nullptr;
    return client::guarded([&] {
        std::unique_ptr<ArdenvueSticks> opened;
        std::string problem;
        const int code =
            open_sticks(opened, record_name == nullptr ? ardenvue::rc_raw_state_name : record_name,
                        guard_path == nullptr ? ARDENVUE_STICK_GUARD_PATH : guard_path, problem);
        if (reason != nullptr && reason_size > 0) {
            std::snprintf(reason, reason_size, "%s", problem.c_str());
        }
        *sticks = code == 0 ? opened.release() : nullptr;
        return code;
    });
}

int ardenvue_sticks_set(ArdenvueSticks* sticks, double input_0, double input_1, double input_2) {
    return client::guarded([&] {
        StickInputs inputs{held(input_0), held(input_1), held(input_2)};
        const bool is_centred = inputs == StickInputs{};
        const bool let_go = was_let_go(*sticks);
        // The guard knows of a deflection before it is there, and of its end after it.
        if (!is_centred) {
            sticks->is_guard_gone |= !tell_guard(*sticks, client::stick_is_deflected);
        }
        if (sticks->is_guard_gone) {
            inputs = {};
        }
        if (!sticks->record.write(inputs)) {
            return static_cast<int>(ARDENVUE_ERROR_SYSTEM);
        }
        if (is_centred) {
            sticks->is_guard_gone |= !tell_guard(*sticks, client::stick_is_centred);
        }
        return sticks->is_guard_gone ? static_cast<int>(ARDENVUE_ERROR_GUARD) : let_go ? 1 : 0;
    });
}

void ardenvue_sticks_close(ArdenvueSticks* sticks) {
    if (sticks != nullptr) {
        client::guarded([&] { return sticks->record.write({}) ? 0 : ARDENVUE_ERROR_SYSTEM; });
        delete sticks;
    }
}
