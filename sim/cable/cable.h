// The cable as the remote controller sees it: the host side of a USB connection. Two transports give it: the
// simulated cable of board_cable.h, and a real host controller. What the remote controller does over it is
// the same on both.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "formats/bytes.h"

namespace sim {

using formats::Bytes;
using Milliseconds = std::chrono::milliseconds;

// The eight bytes of a setup stage, USB 2.0, 9.3.
struct SetupPacket {
    std::uint8_t request_type;
    std::uint8_t request;
    std::uint16_t value;
    std::uint16_t index;
    std::uint16_t length;
};

enum class ControlStatus {
    acknowledged,
    stalled,
    no_answer,  // the device said nothing in time, or went away
};

struct ControlResult {
    ControlStatus status;
    Bytes data;  // of the data stage, when the request has one towards the host
};

// Speed codes of the kernel's usb_device_speed (linux/usb/ch9.h).
enum class Speed : std::uint32_t { full = 2, high = 3 };

class Cable {
  public:
    virtual ~Cable() = default;

    // Waits until a device presents itself; false when none did in time.
    virtual bool wait_for_device(Milliseconds timeout) = 0;

    // Plugs the cable in, with the resets that the host makes then; pulls it: transfers in progress fail on
    // both sides.
    virtual bool plug(Speed speed) = 0;
    virtual void pull() = 0;

    // One control transfer on endpoint 0, and its answer.
    virtual ControlResult control(const SetupPacket& setup, Milliseconds timeout) = 0;

    // Sends the bytes to the OUT endpoint in bulk packets of at most 512; returns when the device has taken
    // them all, or false when it is gone. May run beside bulk_in.
    virtual bool bulk_out(std::span<const std::uint8_t> bytes) = 0;

    // The next packet that the device wrote to the IN endpoint; none when the time is up or the device is
    // gone.
    virtual std::optional<Bytes> bulk_in(Milliseconds timeout) = 0;

    // What the device told its kernel, where the transport can see it: the device configuration, and that of
    // each data endpoint in the order of opening.
    virtual std::optional<Bytes> device_configuration() { return std::nullopt; }
    virtual std::vector<Bytes> endpoint_configurations() { return {}; }
};

}  // namespace sim
