#include "ctl/stop_signal.h"

#include <csignal>

namespace ctl {
namespace {

volatile std::sig_atomic_t stopped = 0;

}  // namespace

void catch_stop_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { stopped = 1; };
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction hangup {};
    sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) {  // not under nohup
        sigaction(SIGHUP, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool stop_requested() {
    return stopped != 0;
}

}  // namespace ctl
