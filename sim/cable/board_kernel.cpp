#include "sim/cable/board_kernel.h"

#include <linux/usb/ch9.h>

#include <algorithm>

namespace sim {
namespace {

// USB 2.0, 9.4 to 9.6.
constexpr std::size_t tag_size = 4;
constexpr std::size_t value_offset = 5;       // bConfigurationValue
constexpr std::size_t attributes_offset = 7;  // bmAttributes

std::uint32_t tag_of(std::span<const std::uint8_t> written) {
    return written[0] | std::uint32_t{written[1]} << 8 | std::uint32_t{written[2]} << 16 |
           std::uint32_t{written[3]} << 24;
}

// Cuts one configuration with all that belongs to it off the front; empty when the kernel refuses it.
Bytes take_configuration(std::span<const std::uint8_t>& rest) {
    const std::size_t total = rest[2] | std::size_t{rest[3]} << 8;
    const bool valid = rest[0] == USB_DT_CONFIG_SIZE && rest[1] == USB_DT_CONFIG &&
                       total >= USB_DT_CONFIG_SIZE && total + USB_DT_DEVICE_SIZE <= rest.size() &&
                       rest[value_offset] != 0 && (rest[attributes_offset] & USB_CONFIG_ATT_ONE) != 0 &&
                       (rest[attributes_offset] & USB_CONFIG_ATT_WAKEUP) == 0;
    if (!valid) {
        return {};
    }
    Bytes taken(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(total));
    rest = rest.subspan(total);
    return taken;
}

ControlResult answer(Bytes data, std::uint16_t length) {
    data.resize(std::min<std::size_t>(data.size(), length));
    return {ControlStatus::acknowledged, std::move(data)};
}

const ControlResult stalled{ControlStatus::stalled, {}};

ControlResult describe(const SetupPacket& setup, const DeviceConfiguration& configuration, Speed speed) {
    const bool high = speed == Speed::high && !configuration.high_speed.empty();
    switch (setup.value >> 8) {
        case USB_DT_DEVICE: {
            Bytes device = configuration.device;
            device[2] = 0x00;  // bcdUSB and bMaxPacketSize0 are the kernel's
            device[3] = 0x02;
            device[7] = 64;
            return answer(std::move(device), setup.length);
        }
        case USB_DT_DEVICE_QUALIFIER: {
            if (configuration.high_speed.empty()) {
                return stalled;
            }
            const Bytes& device = configuration.device;
            return answer(
                {10, USB_DT_DEVICE_QUALIFIER, 0x00, 0x02, device[4], device[5], device[6], 64, 1, 0},
                setup.length);
        }
        case USB_DT_CONFIG:
        case USB_DT_OTHER_SPEED_CONFIG: {
            const bool other = (setup.value >> 8) == USB_DT_OTHER_SPEED_CONFIG;
            if ((setup.value & 0xFF) != 0 || (other && configuration.high_speed.empty())) {
                return stalled;
            }
            Bytes list = high != other ? configuration.high_speed : configuration.full_speed;
            list[1] = static_cast<std::uint8_t>(setup.value >> 8);
            return answer(std::move(list), setup.length);
        }
        default:
            return stalled;
    }
}

}  // namespace

std::optional<DeviceConfiguration> parse_device_configuration(std::span<const std::uint8_t> written) {
    constexpr std::size_t capacity = std::size_t{4} * 4096;
    if (written.size() < tag_size + USB_DT_CONFIG_SIZE + USB_DT_DEVICE_SIZE || written.size() > capacity ||
        tag_of(written) != 0) {
        return std::nullopt;
    }
    std::span<const std::uint8_t> rest = written.subspan(tag_size);
    DeviceConfiguration result;
    result.full_speed = take_configuration(rest);
    if (result.full_speed.empty()) {
        return std::nullopt;
    }
    if (rest[1] == USB_DT_CONFIG) {
        result.high_speed = take_configuration(rest);
        if (result.high_speed.empty()) {
            return std::nullopt;
        }
    }
    constexpr std::size_t configuration_count_offset = 17;
    if (rest.size() != USB_DT_DEVICE_SIZE || rest[0] != USB_DT_DEVICE_SIZE || rest[1] != USB_DT_DEVICE ||
        rest[configuration_count_offset] != 1) {
        return std::nullopt;
    }
    result.device.assign(rest.begin(), rest.end());
    return result;
}

std::optional<EndpointConfiguration> parse_endpoint_configuration(std::span<const std::uint8_t> written,
                                                                  std::optional<Speed> speed) {
    const std::size_t count =
        written.size() < tag_size ? 0 : (written.size() - tag_size) / USB_DT_ENDPOINT_SIZE;
    if (count < 1 || count > 2 || written.size() != tag_size + count * USB_DT_ENDPOINT_SIZE ||
        tag_of(written) != 1) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < count; ++index) {
        const auto descriptor = written.subspan(tag_size + index * USB_DT_ENDPOINT_SIZE);
        if (descriptor[0] != USB_DT_ENDPOINT_SIZE || descriptor[1] != USB_DT_ENDPOINT) {
            return std::nullopt;
        }
    }
    if (!speed || (speed == Speed::high && count < 2)) {
        return std::nullopt;
    }
    const auto descriptor = written.subspan(tag_size + (speed == Speed::high ? USB_DT_ENDPOINT_SIZE : 0));
    return EndpointConfiguration{
        descriptor[2], static_cast<std::uint16_t>(descriptor[4] | std::uint16_t{descriptor[5]} << 8)};
}

bool is_set_configuration(const SetupPacket& setup) {
    return setup.request_type == 0 && setup.request == USB_REQ_SET_CONFIGURATION;
}

std::optional<ControlResult> answer_of_kernel(const SetupPacket& setup,
                                              const DeviceConfiguration& configuration, Speed speed,
                                              std::uint8_t current_configuration) {
    if (setup.request == USB_REQ_GET_DESCRIPTOR && setup.request_type == 0x80 &&
        (setup.value >> 8) != USB_DT_STRING) {
        return describe(setup, configuration, speed);
    }
    if (setup.request == USB_REQ_GET_CONFIGURATION && setup.request_type == 0x80) {
        return answer({current_configuration}, setup.length);
    }
    // gadgetfs never tells the controller's driver that the device powers itself.
    if (setup.request == USB_REQ_GET_STATUS && setup.request_type >= 0x80 && setup.request_type <= 0x82) {
        return answer({0, 0}, setup.length);
    }
    if (is_set_configuration(setup)) {
        const auto value = static_cast<std::uint8_t>(setup.value);
        const bool known = value == 0 || value == configuration.full_speed[value_offset];
        return known ? std::nullopt : std::optional{stalled};
    }
    return std::nullopt;
}

}  // namespace sim
