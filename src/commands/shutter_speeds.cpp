#include "commands/shutter_speeds.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::string_view speeds[] = {
    "30\"",   "25\"",   "20\"",   "15\"",   "10\"",   "9\"",    "8\"",    "7\"",    "6\"",    "5\"",
    "4\"",    "3.2\"",  "3\"",    "2.5\"",  "2\"",    "1.6\"",  "1.3\"",  "1\"",    "1/1.25", "1/1.67",
    "1/2",    "1/2.5",  "1/3",    "1/4",    "1/5",    "1/6.25", "1/8",    "1/10",   "1/12.5", "1/15",
    "1/20",   "1/25",   "1/30",   "1/40",   "1/50",   "1/60",   "1/80",   "1/100",  "1/120",  "1/160",
    "1/200",  "1/240",  "1/320",  "1/400",  "1/500",  "1/640",  "1/800",  "1/1000", "1/1250", "1/1600",
    "1/2000", "1/2500", "1/3200", "1/4000", "1/5000", "1/6400", "1/8000",
};
static_assert(std::size(speeds) == 57);

constexpr unsigned digits(std::string_view text) {
    unsigned number = 0;
    for (const char digit : text) {
        number = number * 10 + static_cast<unsigned>(digit - '0');
    }
    return number;
}

constexpr ShutterCode code_of(std::string_view speed) {
    const bool fraction = speed.starts_with("1/");
    if (fraction) {
        speed.remove_prefix(2);
    } else {
        speed.remove_suffix(1);  // the double-quote sign
    }
    const std::size_t point = std::min(speed.find('.'), speed.size());
    const unsigned whole = digits(speed.substr(0, point));
    const unsigned decimal = point < speed.size() ? digits(speed.substr(point + 1)) : 0;
    return {static_cast<std::uint16_t>(fraction ? whole | 0x8000U : whole),
            static_cast<std::uint8_t>(decimal)};
}

// Codes as the camera has them.
constexpr bool is(std::string_view speed, unsigned value, unsigned decimal) {
    const ShutterCode code = code_of(speed);
    return code.value == value && code.decimal == decimal;
}
static_assert(is("30\"", 30, 0) && is("3.2\"", 3, 2) && is("1/1.25", 0x8001, 25) && is("1/8000", 0x9F40, 0));

}  // namespace

ShutterCode find_shutter_code(std::string_view text) {
    const bool known = std::find(std::begin(speeds), std::end(speeds), text) != std::end(speeds);
    return known ? code_of(text) : ShutterCode{0, 0};
}
