#include "state/camera_text.h"

#include <charconv>

namespace {
// Appends to a text that starts as zeros; what has no room is left out.
class TextWriter {
  public:
    explicit TextWriter(ShortText& target)
        : next_{target.text}, end_{target.text + ShortText::capacity - 1} {}

    void put(char character) {
        if (next_ != end_) {
            *next_++ = character;
        }
    }

    void put_number(std::uint32_t number) { next_ = std::to_chars(next_, end_, number).ptr; }

    void put_two_digits(std::uint32_t number) {
        if (number < 10) {
            put('0');
        }
        put_number(number);
    }

    void put_decimal(double number, int decimals) {
        next_ = std::to_chars(next_, end_, number, std::chars_format::fixed, decimals).ptr;
    }

  private:
    char* next_;
    char* end_;
};
}  // namespace

ShortText format_duration(std::uint32_t seconds) {
    ShortText result{};
    TextWriter text{result};
    text.put_two_digits(seconds / 3600);
    text.put(':');
    text.put_two_digits(seconds / 60 % 60);
    text.put(':');
    text.put_two_digits(seconds % 60);
    return result;
}

ShortText format_gigabytes(std::uint32_t megabytes) {
    ShortText result{};
    TextWriter text{result};
    text.put_decimal(static_cast<double>(static_cast<float>(megabytes) * 0.001F), 1);
    text.put('G');
    return result;
}

ShortText format_aperture(std::uint16_t hundredths) {
    ShortText result{};
    const double f_number = hundredths * 0.01;
    const bool is_whole = f_number == static_cast<double>(static_cast<int>(f_number));
    TextWriter{result}.put_decimal(f_number, is_whole ? 0 : 1);
    return result;
}

std::optional<ShortText> format_shutter(std::uint32_t code) {
    constexpr std::uint32_t fraction_mark = 0x80;
    const std::uint32_t low = code & 0xFF;
    const std::uint32_t middle = code >> 8 & 0xFF;
    const std::uint32_t decimal = code >> 16;
    if (middle != 0 && middle < fraction_mark) {
        return std::nullopt;
    }
    const bool is_fraction = middle != 0;
    ShortText result{};
    TextWriter text{result};
    if (is_fraction) {
        text.put('1');
        text.put('/');
    }
    text.put_number(is_fraction ? (middle - fraction_mark) * 256 + low : low);
    if (decimal != 0) {
        text.put('.');
        text.put_number(decimal);
    }
    if (!is_fraction) {
        text.put('"');
    }
    return result;
}
