#include "sim/cable/board_kernel.h"

#include <algorithm>

namespace sim {
namespace {

// USB 2.0, 9.4 to 9.6.
constexpr std::uint8_t get_status = 0;
constexpr std::uint8_t get_descriptor = 6;
constexpr std::uint8_t get_configuration = 8;
constexpr std::uint8_t set_configuration = 9;
constexpr std::uint8_t device_type = 1;
constexpr std::uint8_t configuration_type = 2;
constexpr std::uint8_t string_type = 3;
constexpr std::uint8_t endpoint_type = 5;
constexpr std::uint8_t qualifier_type = 6;
constexpr std::uint8_t other_speed_type = 7;
constexpr std::size_t device_size = 18;
constexpr std::size_t configuration_size = 9;
constexpr std::size_t endpoint_size = 7;
constexpr std::size_t tag_size = 4;
constexpr std::size_t value_offset = 5;       // bConfigurationValue
constexpr std::size_t attributes_offset = 7;  // bmAttributes
constexpr std::uint8_t attribute_one = 0x80;
constexpr std::uint8_t attribute_wakeup = 0x20;

std::uint32_t tag_of(std::span<const std::uint8_t> written) {
    return written[0] | std::uint32_t{written[1]} << 8 | std::uint32_t{written[2]} << 16 |
           std::uint32_t{written[3]} << 24;
}

// Cuts one configuration with all that belongs to it off the front; empty when the kernel refuses it.
Bytes take_configuration(std::span<const std::uint8_t>& rest) {
    const std::size_t total = rest[2] | std::size_t{rest[3]} << 8;
    const bool valid = rest[0] == configuration_size && rest[1] == configuration_type &&
                       total >= configuration_size && total + device_size <= rest.size() &&
                       rest[value_offset] != 0 && (rest[attributes_offset] & attribute_one) != 0 &&
                       (rest[attributes_offset] & attribute_wakeup) == 0;
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
        case device_type: {
            Bytes device = configuration.device;
            device[2] = 0x00;  // bcdUSB and bMaxPacketSize0 are the kernel's
            device[3] = 0x02;
            device[7] = 64;
            return answer(std::move(device), setup.length);
        }
        case qualifier_type: {
            if (configuration.high_speed.empty()) {
                return stalled;
            }
            const Bytes& device = configuration.device;
            return answer({10, qualifier_type, 0x00, 0x02, device[4], device[5], device[6], 64, 1, 0},
                          setup.length);
        }
        case configuration_type:
        case other_speed_type: {
            const bool other = (setup.value >> 8) == other_speed_type;
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
    if (written.size() < tag_size + configuration_size + device_size || written.size() > capacity ||
        tag_of(written) != 0) {
        return std::nullopt;
    }
    std::span<const std::uint8_t> rest = written.subspan(tag_size);
    DeviceConfiguration result;
    result.full_speed = take_configuration(rest);
    if (result.full_speed.empty()) {
        return std::nullopt;
    }
    if (rest[1] == configuration_type) {
        result.high_speed = take_configuration(rest);
        if (result.high_speed.empty()) {
            return std::nullopt;
        }
    }
    constexpr std::size_t configuration_count_offset = 17;
    if (rest.size() != device_size || rest[0] != device_size || rest[1] != device_type ||
        rest[configuration_count_offset] != 1) {
        return std::nullopt;
    }
    result.device.assign(rest.begin(), rest.end());
    return result;
}

std::optional<EndpointConfiguration> parse_endpoint_configuration(std::span<const std::uint8_t> written,
                                                                  std::optional<Speed> speed) {
    const std::size_t count = written.size() < tag_size ? 0 : (written.size() - tag_size) / endpoint_size;
    if (count < 1 || count > 2 || written.size() != tag_size + count * endpoint_size ||
        tag_of(written) != 1) {
        return std::nullopt;
    }
    for (std::size_t index = 0; index < count; ++index) {
        const auto descriptor = written.subspan(tag_size + index * endpoint_size);
        if (descriptor[0] != endpoint_size || descriptor[1] != endpoint_type) {
            return std::nullopt;
        }
    }
    if (!speed || (speed == Speed::high && count < 2)) {
        return std::nullopt;
    }
    const auto descriptor = written.subspan(tag_size + (speed == Speed::high ? endpoint_size : 0));
    return EndpointConfiguration{
        descriptor[2], static_cast<std::uint16_t>(descriptor[4] | std::uint16_t{descriptor[5]} << 8)};
}

bool is_set_configuration(const SetupPacket& setup) {
    return setup.request_type == 0 && setup.request == set_configuration;
}

std::optional<ControlResult> answer_of_kernel(const SetupPacket& setup,
                                              const DeviceConfiguration& configuration, Speed speed,
                                              std::uint8_t current_configuration) {
    if (setup.request == get_descriptor && setup.request_type == 0x80 && (setup.value >> 8) != string_type) {
        return describe(setup, configuration, speed);
    }
    if (setup.request == get_configuration && setup.request_type == 0x80) {
        return answer({current_configuration}, setup.length);
    }
    // gadgetfs never tells the controller's driver that the device powers itself.
    if (setup.request == get_status && setup.request_type >= 0x80 && setup.request_type <= 0x82) {
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
