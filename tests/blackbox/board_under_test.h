// The board that black-box tests run the service on: a simulated one, or, where REAL_BOARD is defined, the
// machine itself with its real kernel. Tests that keep to what both can do run on both.
#pragma once

#include <stdexcept>
#include <string>

#ifdef REAL_BOARD
#include "sim/board/real_board.h"
#else
#include "sim/board/board.h"
#endif

namespace blackbox {

#ifdef REAL_BOARD
using BoardUnderTest = sim::RealBoard;
using BoardSetup = sim::RealBoardOptions;

inline BoardSetup complete(BoardSetup setup) {
    return setup;
}

inline void set_fault(BoardUnderTest& /*board*/, const std::string& name) {
    throw std::logic_error{"a real board has no fault on demand: " + name};
}
#else
using BoardUnderTest = sim::Board;
using BoardSetup = sim::BoardOptions;

inline BoardSetup complete(BoardSetup setup) {
    setup.library = BOARD_LIBRARY_PATH;
    return setup;
}

inline void set_fault(BoardUnderTest& board, const std::string& name) {
    board.set_fault(name);
}
#endif

}  // namespace blackbox
