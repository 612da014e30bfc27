// The guard of the stick inputs: ardenvue-stick-guard RECORD, started by libardenvue with a socket to the
// writer as its standard input. Writes zeros into the record when the writer is gone, and while it stalls
// with a deflection.
#include "client/stick_guard.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "ardenvue/sticks.h"
#include "client/stick_record.h"

namespace {

constexpr int writer = STDIN_FILENO;

// Of its own session, and deaf: what stops or ends the writer's terminal, group or job must not reach the
// guard. Its parent has gone, so the writer has no child to look after.
void leave_family() {
    sigset_t all{};
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    if (const pid_t child = fork(); child != 0) {
        _exit(child > 0 ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    setsid();
    if (chdir("/") != 0) {
        _exit(EXIT_FAILURE);
    }
    // What the writer left open: a port that is bound, say, must not outlive it here.
    syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0U);
}

void tell_writer(char word) {
    send(writer, &word, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

// The newest word, '\0' when none came in time; false once the writer is gone.
bool next_word(int timeout_ms, char& word) {
    pollfd readable{writer, POLLIN, 0};
    word = '\0';
    if (poll(&readable, 1, timeout_ms) == 0) {
        return true;
    }
    char words[256];
    const ssize_t count = recv(writer, words, sizeof words, MSG_DONTWAIT);
    if (count > 0) {
        word = words[count - 1];
    }
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return EXIT_FAILURE;
    }
    leave_family();
    client::StickRecord record{argv[1]};
    if (!record.write({})) {
        return EXIT_FAILURE;
    }
    tell_writer(client::guard_is_ready);
    bool is_deflected = false;
    for (char word = '\0'; next_word(is_deflected ? ARDENVUE_STICK_PATIENCE_MS : -1, word);) {
        if (word == '\0' && is_deflected) {
            // Again and again while it lasts: a writer that was stopped between two steps may still write one
            // deflection when it goes on.
            record.write({});
            tell_writer(client::guard_let_go);
        } else if (word != '\0') {
            is_deflected = word == client::stick_is_deflected;
        }
    }
    record.write({});
    return EXIT_SUCCESS;
}
