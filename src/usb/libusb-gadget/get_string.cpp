#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "platform/little_endian.h"
#include "usb/libusb-gadget/usb-gadget.h"

namespace {
// bLength is one byte and even: 2 + 2 x 126 = 254.
constexpr std::size_t max_units = 126;

constexpr bool is_continuation(std::uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// The UTF-16 unit at the start of a zero-terminated text, which is moved past it.
std::optional<std::uint16_t> next_unit(const std::uint8_t*& text) {
    const std::uint8_t lead = text[0];
    unsigned unit = lead;
    std::size_t size = 1;
    if ((lead & 0xE0) == 0xC0) {
        if (!is_continuation(text[1])) {
            return std::nullopt;
        }
        unit = (lead & 0x1FU) << 6 | (text[1] & 0x3FU);
        size = 2;
    } else if ((lead & 0xF0) == 0xE0) {
        if (!is_continuation(text[1]) || !is_continuation(text[2])) {
            return std::nullopt;
        }
        unit = (lead & 0x0FU) << 12 | (text[1] & 0x3FU) << 6 | (text[2] & 0x3FU);
        if (unit >= 0xD800 && unit <= 0xDFFF) {  // halves of surrogate pairs are no characters
            return std::nullopt;
        }
        size = 3;
    } else if (lead >= 0x80) {
        return std::nullopt;
    }
    text += size;
    return static_cast<std::uint16_t>(unit);
}

int store_header(std::uint8_t* buffer, std::size_t length) {
    buffer[0] = static_cast<std::uint8_t>(length);
    buffer[1] = USB_DT_STRING;
    return static_cast<int>(length);
}
}  // namespace

int usb_gadget_get_string(const usb_gadget_strings* strings, std::uint8_t id, std::uint8_t* buffer) {
    if (strings == nullptr) {
        return -EINVAL;
    }
    if (id == 0) {
        store_le16(buffer + 2, strings->language);
        return store_header(buffer, 4);
    }
    const usb_gadget_string* entry = strings->strings;
    while (entry->s != nullptr && entry->id != id) {
        ++entry;
    }
    if (entry->s == nullptr) {
        return -EINVAL;
    }
    const std::size_t limit = std::min(std::strlen(entry->s), max_units);
    std::memset(buffer + 2, 0, 2 * limit);
    const auto* text = reinterpret_cast<const std::uint8_t*>(entry->s);
    std::size_t units = 0;
    for (; units < limit && *text != '\0'; ++units) {
        const std::optional<std::uint16_t> unit = next_unit(text);
        if (!unit) {
            return -EINVAL;
        }
        store_le16(buffer + 2 + 2 * units, *unit);
    }
    return store_header(buffer, 2 * (units + 1));
}
