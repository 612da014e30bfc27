#include "usb/read_gate.h"

#include <csignal>

#include "platform/clock.h"

namespace {
// Nobody sends it for anything else here, and a stray one has always been ignored.
constexpr int interrupting_signal = SIGURG;
constexpr std::uint32_t look_again_ms = 1;
}  // namespace

void ReadGate::prepare_signal() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    // gadgetfs returns EINTR all the same; everything else goes on.
    action.sa_flags = SA_RESTART;
    sigaction(interrupting_signal, &action, nullptr);
}

void ReadGate::accept_signal() {
    sigset_t accepted;
    sigemptyset(&accepted);
    sigaddset(&accepted, interrupting_signal);
    pthread_sigmask(SIG_UNBLOCK, &accepted, nullptr);
}

// Either the reader sees the gate closed, or this sees it reading. One signal may come just before the read
// is entered, hence the repetition.
void ReadGate::close(pthread_t reader) {
    is_closed_ = true;
    while (is_reading_) {
        pthread_kill(reader, interrupting_signal);
        sleep_ms(look_again_ms);
    }
}

void ReadGate::wait_until_open() const {
    while (is_closed_) {
        sleep_ms(look_again_ms);
    }
}

ReadGate::Pass::Pass(ReadGate& gate) : gate_{gate} {
    gate_.is_reading_ = true;
    granted_ = !gate_.is_closed_;
}
