#pragma once

#include "ctl/monitor_state.h"

namespace ctl {

// The terminal while the monitor has it; given back as it was at the end of its life.
class MonitorScreen {
  public:
    MonitorScreen();
    ~MonitorScreen();
    MonitorScreen(const MonitorScreen&) = delete;
    MonitorScreen& operator=(const MonitorScreen&) = delete;

    // Redraws the whole screen, at its present size.
    void draw(const MonitorState& state);

    // Takes in the keys typed and changes of the size; true when one of the keys was q.
    bool quit_requested();
};

}  // namespace ctl
