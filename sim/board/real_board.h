// A board with a kernel that has the real thing: this machine, with gadgetfs for the service and a USB host
// controller that the device is plugged into. One at a time, as root; meant for an emulated machine that is
// thrown away.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "sim/board/service_run.h"
#include "sim/cable/usbfs_cable.h"

namespace sim {

struct RealBoardOptions {
    std::filesystem::path port_switch = dummy_host_port_switch();
};

class RealBoard : public ServiceRun {
  public:
    // Takes what an earlier service left (shared memory, files, the gadgetfs mount and module) away, and
    // pulls the cable. Throws std::runtime_error when there is no port to plug it into.
    explicit RealBoard(const RealBoardOptions& options);
    ~RealBoard();

    // Starts the service, and may do so again after it ended. Throws std::runtime_error when it can't be
    // started.
    void start(const ServiceOptions& service);

    UsbfsCable& cable() { return cable_; }

    // TCP 6000 once the service listens there; none when it does not in time.
    std::optional<std::uint16_t> relay_port(Milliseconds timeout) const;

  private:
    UsbfsCable cable_;
};

}  // namespace sim
