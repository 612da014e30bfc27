#pragma once

#include <cstdint>

#include "usb/libusb-gadget/usb-gadget.h"

constexpr std::uint8_t in_endpoint_number = 6;   // to the remote controller
constexpr std::uint8_t out_endpoint_number = 2;  // from it

// The device that the remote controller sees: vendor-specific, one bulk endpoint each way, an accessory as
// Android devices are. The identifiers are stored into its device descriptor. Main thread, before the device
// is opened.
const usb_gadget_device& loopback_device(std::uint16_t vendor_id, std::uint16_t product_id);
