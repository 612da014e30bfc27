// What the writer of stick inputs and its guard say to each other, over a pair of sockets whose end in the
// guard is its standard input. A byte each; the end of the stream means that the writer is gone.
#pragma once

namespace client {

constexpr char stick_is_deflected = 'd';  // writer: an input is not 0; said again within the patience
constexpr char stick_is_centred = 'c';    // writer: all are 0
constexpr char guard_is_ready = 'r';      // guard: the record can be written
constexpr char guard_let_go = 'z';        // guard: the writer was silent, so zeros were written

}  // namespace client
