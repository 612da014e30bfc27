#include "ctl/stop_signal.h"

#include <csignal>

#include "formats/stop_signals.h"

namespace ctl {
namespace {

volatile std::sig_atomic_t stopped = 0;

}  // namespace

void catch_stop_signals() {
    formats::on_stop_signals([](int) { stopped = 1; });
    std::signal(SIGPIPE, SIG_IGN);
}

bool stop_requested() {
    return stopped != 0;
}

}  // namespace ctl
