#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "usb/libusb-gadget/usb-gadget.h"

namespace {
using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::SizeIs;

// The descriptor of a text, or its negative result alone. The buffer is full of old bytes beforehand.
Bytes descriptor_of(const std::string& text, int& result) {
    const usb_gadget_string table[] = {{7, "another"}, {9, text.c_str()}, {0, nullptr}};
    const usb_gadget_strings strings = {0x0409, table};
    Bytes buffer(256, 0xEE);
    result = usb_gadget_get_string(&strings, 9, buffer.data());
    buffer.resize(result < 0 ? 0 : static_cast<std::size_t>(result));
    return buffer;
}

TEST(UsbString, LanguageIsTheStringZero) {
    const usb_gadget_string table[] = {{0, nullptr}};
    const usb_gadget_strings strings = {0x0407, table};
    Bytes buffer(256);
    ASSERT_EQ(usb_gadget_get_string(&strings, 0, buffer.data()), 4);
    buffer.resize(4);
    EXPECT_THAT(buffer, ElementsAre(0x04, 0x03, 0x07, 0x04));
}

TEST(UsbString, AbsentTextsAreRefused) {
    // The entry after the end must not be found.
    const usb_gadget_string table[] = {{1, "one"}, {0, nullptr}, {2, "beyond"}};
    const usb_gadget_strings strings = {0x0409, table};
    Bytes buffer(256);
    EXPECT_EQ(usb_gadget_get_string(&strings, 2, buffer.data()), -EINVAL);
    EXPECT_EQ(usb_gadget_get_string(nullptr, 0, buffer.data()), -EINVAL);
}

TEST(UsbString, TextsBecomeUtf16) {
    const struct {
        const char* text;
        Bytes expected;
    } cases[] = {
        {"", {2, 3}},
        {"Az", {6, 3, 'A', 0, 'z', 0}},
        {"\xC3\xA9", {4, 3, 0xE9, 0x00}},                              // e with acute accent
        {"\xE2\x82\xAC!", {6, 3, 0xAC, 0x20, '!', 0}},                 // euro sign
        {"\xDF\xBF\xE0\xA0\x80", {6, 3, 0xFF, 0x07, 0x00, 0x08}},      // last of two bytes, first of three
        {"\xED\x9F\xBF\xEE\x80\x80", {6, 3, 0xFF, 0xD7, 0x00, 0xE0}},  // both sides of the surrogates
        {"\xEF\xBF\xBF", {4, 3, 0xFF, 0xFF}},
    };
    for (const auto& [text, expected] : cases) {
        int result = 0;
        EXPECT_EQ(descriptor_of(text, result), expected) << text;
    }
}

TEST(UsbString, FaultyTextsAreRefused) {
    const char* const texts[] = {
        "\x80",  // a continuation byte alone
        "ab\xBF"
        "cd",
        "\xC3",  // cut off
        "\xC3"
        "a",         // not continued
        "\xE2\x82",  // cut off after two of three
        "\xE2"
        "a\xAC",
        "\xE2\x82"
        "a",
        "\xED\xA0\x80",      // D800, first surrogate
        "\xED\xBF\xBF",      // DFFF, last surrogate
        "\xF0\x9F\x9A\x81",  // four bytes
        "\xFF",
    };
    for (const char* text : texts) {
        int result = 0;
        descriptor_of(text, result);
        EXPECT_EQ(result, -EINVAL) << testing::PrintToString(std::string{text});
    }
}

TEST(UsbString, LongTextsAreCutAt126Units) {
    int result = 0;
    const Bytes ascii = descriptor_of(std::string(130, 'x'), result);
    EXPECT_EQ(result, 254);
    EXPECT_EQ(ascii[0], 254);
    EXPECT_EQ(ascii[252], 'x');

    // 250 bytes, but 125 units; and what is cut off is not looked at.
    std::string accents;
    for (int i = 0; i < 125; ++i) {
        accents += "\xC3\xA9";
    }
    EXPECT_THAT(descriptor_of(accents, result), SizeIs(252));
    EXPECT_THAT(descriptor_of(std::string(126, 'x') + "\xFF", result), SizeIs(254));
}
}  // namespace
