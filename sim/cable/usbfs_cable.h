// The cable of a real USB host controller: Linux's own host stack stands on the other side, reached through
// usbfs (linux/usbdevice_fs.h) with plain ioctls, so that a static executable for any board needs no library.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>

#include "sim/cable/cable.h"

namespace sim {

// The host's stack enumerates by itself when the cable is plugged: the resets, the descriptors, the strings
// and SET_CONFIGURATION are its own. plug() returns when that is over and interface 0 is claimed; from then
// on reads are always pending on the IN endpoint, so that a write of the device never waits for bulk_in.
class UsbfsCable final : public Cable {
  public:
    // The switch of the host's port that the cable is in: a root hub's usbN-port1/disable in sysfs. Pulls the
    // cable to begin with. Needs root.
    explicit UsbfsCable(std::filesystem::path port_switch);
    ~UsbfsCable() override;

    bool wait_for_device(Milliseconds timeout) override;
    // The speed is the controller's own; when it is another than the one asked for, false.
    bool plug(Speed speed) override;
    void pull() override;
    // SET_CONFIGURATION with the value that is in use is acknowledged without a transfer: the host's stack
    // has made it, and the device would see a second one.
    ControlResult control(const SetupPacket& setup, Milliseconds timeout) override;
    bool bulk_out(std::span<const std::uint8_t> bytes) override;
    std::optional<Bytes> bulk_in(Milliseconds timeout) override;

    // Endpoints are open when the host's stack is done, which plug() has waited for.
    bool wait_for_endpoints(Milliseconds timeout);

  private:
    class Session;

    void power_port(bool on);
    std::shared_ptr<Session> session();

    std::filesystem::path port_switch_;
    std::mutex mutex_;                  // guards session_
    std::shared_ptr<Session> session_;  // while plugged; calls in progress keep it alive
};

// The port switch of the kernel's dummy_hcd, a controller whose host and device sides are the same machine.
// Empty when it is not loaded.
std::filesystem::path dummy_host_port_switch();

}  // namespace sim
