#include "sim/remote/host.h"

#include <cstdio>
#include <string_view>

#include "formats/hex.h"

namespace sim {
namespace {

// What the device must tell its kernel, byte for byte: tag; configuration, interface, IN and OUT endpoint at
// full speed; the same at high speed; the device descriptor.
const Bytes expected_configuration = {
    0x00, 0x00, 0x00, 0x00,                                // tag
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  // full speed
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  //
    0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              //
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0xFA, 0xC0, 0x01,  // high speed
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0xFA,  //
    0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,              //
    0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0xD1,  // device
    0x18, 0x00, 0x2D, 0x00, 0x00, 0x19, 0x2D, 0x65, 0x01,  //
};

const std::vector<Bytes> expected_endpoints = {
    {0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00, 0x07, 0x05, 0x86, 0x02, 0x00, 0x02,
     0x00},
    {0x01, 0x00, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00, 0x07, 0x05, 0x02, 0x02, 0x00, 0x02,
     0x00},
};

// As the host reads it: the kernel fills in the packet size of endpoint 0.
const Bytes expected_device = {0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x40, 0xD1,
                               0x18, 0x00, 0x2D, 0x00, 0x00, 0x19, 0x2D, 0x65, 0x01};

struct ExpectedString {
    std::uint8_t index;
    std::string_view text;
};
constexpr ExpectedString product{45, "Ardenvue USB"};
constexpr ExpectedString manufacturer{25, "Ardenvue"};
constexpr ExpectedString serial_number{101, "00000000"};
constexpr ExpectedString interface_name{250, "The loopback"};
constexpr std::uint16_t english = 0x0409;

Bytes slice(const Bytes& bytes, std::size_t from, std::size_t size) {
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    return {start, start + static_cast<std::ptrdiff_t>(size)};
}

// USB 2.0, 9.6.7: length, type 3, UTF-16 code units.
Bytes string_descriptor(std::string_view text) {
    Bytes result = {static_cast<std::uint8_t>(2 + 2 * text.size()), 3};
    for (const char character : text) {
        result.push_back(static_cast<std::uint8_t>(character));
        result.push_back(0);
    }
    return result;
}

class Enumeration {
  public:
    Enumeration(Cable& cable, Milliseconds patience) : cable_{cable}, patience_{patience} {}

    void expect(const std::string& what, const Bytes& expected, const Bytes& actual) {
        if (expected != actual) {
            complaints.push_back(what + ": expected " + formats::hex(expected) + ", got " +
                                 formats::hex(actual));
        }
    }

    void expect_answer(const std::string& what, const SetupPacket& setup, const Bytes& expected) {
        const ControlResult result = cable_.control(setup, patience_);
        if (result.status == ControlStatus::acknowledged) {
            expect(what, expected, result.data);
        } else {
            complaints.push_back(what +
                                 (result.status == ControlStatus::stalled ? ": stalled" : ": no answer"));
        }
    }

    void expect_string(const ExpectedString& expected) {
        expect_answer("string " + std::to_string(expected.index),
                      {0x80, 6, static_cast<std::uint16_t>(0x0300 | expected.index), english, 255},
                      string_descriptor(expected.text));
    }

    std::vector<std::string> complaints;

  private:
    Cable& cable_;
    Milliseconds patience_;
};

}  // namespace

std::vector<std::string> enumerate(Cable& cable, Speed speed, Milliseconds patience) {
    Enumeration host{cable, patience};
    if (!cable.wait_for_device(patience)) {
        return {"no device"};
    }
    if (const std::optional<Bytes> written = cable.device_configuration()) {
        host.expect("configuration written to the controller", expected_configuration, *written);
    }
    if (!cable.plug(speed)) {
        return {"the device does not answer the cable"};
    }
    constexpr std::size_t list_size = 32;
    const std::size_t list = speed == Speed::high ? 4 + list_size : 4;
    host.expect_answer("device descriptor", {0x80, 6, 0x0100, 0, 18}, expected_device);
    host.expect_answer("start of the configuration", {0x80, 6, 0x0200, 0, 9},
                       slice(expected_configuration, list, 9));
    host.expect_answer("configuration", {0x80, 6, 0x0200, 0, list_size},
                       slice(expected_configuration, list, list_size));
    host.expect_answer("languages", {0x80, 6, 0x0300, 0, 255}, {4, 3, 0x09, 0x04});
    host.expect_string(product);
    host.expect_string(manufacturer);
    host.expect_string(serial_number);
    host.expect_answer("SET_CONFIGURATION 2", {0x00, 9, 2, 0, 0}, {});
    host.expect_string(interface_name);
    const std::vector<Bytes> endpoints = cable.endpoint_configurations();
    for (std::size_t index = 0; index < endpoints.size(); ++index) {
        host.expect("configuration of endpoint file " + std::to_string(index),
                    index < expected_endpoints.size() ? expected_endpoints[index] : Bytes{},
                    endpoints[index]);
    }
    return std::move(host.complaints);
}

}  // namespace sim
