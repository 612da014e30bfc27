#include "usb/libusb-gadget/endpoint_files.h"

#include <gtest/gtest.h>

namespace {
usb_endpoint_descriptor endpoint(std::uint8_t address, std::uint8_t attributes) {
    usb_endpoint_descriptor descriptor{};
    descriptor.bEndpointAddress = address;
    descriptor.bmAttributes = attributes;
    return descriptor;
}

TEST(EndpointFiles, NamesSayWhatTheyServe) {
    constexpr std::uint8_t in_6 = 0x86;
    constexpr std::uint8_t out_2 = 0x02;
    constexpr std::uint8_t out_12 = 0x0C;
    enum Type : std::uint8_t { iso = 1, bulk = 2, interrupt = 3, bulk_with_high_bits = 0x0E };
    const struct {
        const char* name;
        std::uint8_t address;
        std::uint8_t attributes;
        bool fits;
    } cases[] = {
        {"ep6in", in_6, bulk, true},
        {"ep6in-bulk", in_6, bulk, true},
        {"ep6in-bulk", in_6, bulk_with_high_bits, true},
        {"ep6", in_6, bulk, true},
        {"ep6-bulk", in_6, bulk, true},
        {"ep6in-bulky", in_6, iso, true},  // no type that is known: any
        {"ep6in-iso", in_6, iso, true},
        {"ep6in-int", in_6, interrupt, true},
        {"ep2out-bulk", out_2, bulk, true},
        {"ep12out", out_12, bulk, true},
        {"ep012out", out_12, bulk, true},
        {"ep-a", in_6, bulk, true},  // serves any endpoint
        {"epin", out_2, iso, true},
        {"ep", out_2, bulk, true},

        {"ep6out", in_6, bulk, false},
        {"ep2in", out_2, bulk, false},
        {"ep6in-int", in_6, bulk, false},
        {"ep6in-iso", in_6, bulk, false},
        {"ep6in-bulk", in_6, interrupt, false},
        {"ep6-int", in_6, bulk, false},
        {"ep5in", in_6, bulk, false},
        {"ep1out", out_12, bulk, false},
        {"ep61in", in_6, bulk, false},
        {"ep4294967302in", in_6, bulk, false},  // 6 in 32 bits
        {"e6in", in_6, bulk, false},
        {"", in_6, bulk, false},
        {".", in_6, bulk, false},
        {"fe980000.usb", in_6, bulk, false},
    };
    for (const auto& [name, address, attributes, fits] : cases) {
        EXPECT_EQ(endpoint_file_fits(name, endpoint(address, attributes)), fits)
            << name << " for " << int{address} << " of type " << int{attributes};
    }
}
}  // namespace
