#pragma once

#include <cerrno>

// Makes a system call anew until no signal has interrupted it: gadgetfs ends a transfer with EINTR also when
// the process was only stopped and continued (a debugger, a frozen control group), and has moved nothing
// then.
template <typename Call>
auto past_interruptions(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}
