#pragma once

#include "ardenvue/error.h"

namespace client {

// Runs what may allocate: no exception leaves the library, and the only one there is, is that memory ran out.
template <typename Call>
int guarded(Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return ARDENVUE_ERROR_MEMORY;
    }
}

}  // namespace client
