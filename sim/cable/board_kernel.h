// What a kernel does by itself for a gadgetfs device (drivers/usb/gadget/legacy/inode.c): checks of what is
// written to the gadget files, and answers to the requests that never reach the service.
#pragma once

#include <optional>
#include <span>

#include "sim/cable/cable.h"

namespace sim {

// A device configuration taken apart.
struct DeviceConfiguration {
    Bytes full_speed;  // configuration descriptor and what belongs to it
    Bytes high_speed;  // the same; empty without high speed
    Bytes device;      // 18 bytes
};

// None when the kernel would refuse it with EINVAL.
std::optional<DeviceConfiguration> parse_device_configuration(std::span<const std::uint8_t> written);

// What is written to an endpoint file: tag, full-speed descriptor, high-speed descriptor when there is one.
struct EndpointConfiguration {
    std::uint8_t address;
    std::uint16_t max_packet;  // at the speed of the connection
};

// None when the kernel would refuse it with EINVAL: a wrong form, or no descriptor for the speed.
std::optional<EndpointConfiguration> parse_endpoint_configuration(std::span<const std::uint8_t> written,
                                                                  std::optional<Speed> speed);

// SET_CONFIGURATION with the form that USB 2.0, 9.4.7 gives it.
bool is_set_configuration(const SetupPacket& setup);

// Requests that the kernel answers itself; none for those that it hands to the service.
std::optional<ControlResult> answer_of_kernel(const SetupPacket& setup,
                                              const DeviceConfiguration& configuration, Speed speed,
                                              std::uint8_t current_configuration);

}  // namespace sim
