#include "formats/access_units.h"

#include <algorithm>
#include <utility>

namespace formats {
namespace {

// The simulated remote controller cuts at 48,000 bytes, and a stream frame can't hold more than 65,535.
constexpr std::size_t whole_below_at_first = 40'000;

constexpr std::size_t start_code_size = 3;

// The NAL unit behind the start code at this place, without the zero bytes that go before the next one
// (B.1.1); may be empty.
NalUnit unit_at(std::span<const std::uint8_t> stream, std::size_t code) {
    const std::size_t begin = code + start_code_size;
    const std::size_t next = find_start_code(stream, begin);
    std::size_t end = next;
    while (next < stream.size() && end > begin && stream[end - 1] == 0) {
        --end;
    }
    return stream.subspan(begin, end - begin);
}

bool begins_access_unit(NalUnit unit) {
    return begins_picture(unit) || precedes_slices(unit);
}

}  // namespace

AccessUnits::AccessUnits(Taker taker) : taker_{std::move(taker)}, whole_below_{whole_below_at_first} {}

void AccessUnits::add(std::span<const std::uint8_t> piece, std::int64_t time_ns) {
    const std::size_t code = find_start_code(piece, 0);
    const bool has_code = code + start_code_size < piece.size();
    // Zero bytes alone may stand before the first start code.
    const bool begins_with_code =
        has_code && std::all_of(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(code),
                                [](std::uint8_t byte) { return byte == 0; });
    const bool goes_on = !begins_with_code || (is_slice(piece.subspan(code + start_code_size)) &&
                                               !begins_picture(piece.subspan(code + start_code_size)));
    if (goes_on && was_handed_on_) {
        // That picture went out without its end. It does not happen again.
        whole_below_ = std::min(whole_below_, last_size_);
    }
    was_handed_on_ = false;
    if (goes_on && bytes_.empty()) {
        return;
    }
    if (!goes_on && begins_access_unit(piece.subspan(code + start_code_size))) {
        flush();
    }
    if (bytes_.empty()) {
        time_ns_ = time_ns;
    }
    bytes_.insert(bytes_.end(), piece.begin(), piece.end());
    for (std::size_t at = code; !has_slice_ && at + start_code_size < piece.size();
         at = find_start_code(piece, at + start_code_size)) {
        has_slice_ = is_slice(piece.subspan(at + start_code_size));
    }
    last_size_ = piece.size();
    if (bytes_.size() > limit) {
        drop();
    } else if (has_slice_ && piece.size() < whole_below_) {
        hand_on();
        was_handed_on_ = true;
    }
}

void AccessUnits::hand_on() {
    const std::span<const std::uint8_t> stream{bytes_};
    bool has_slice = false;
    bool is_key = false;
    const auto hand_over = [&] {
        taker_({units_, is_key, time_ns_});
        units_.clear();
        has_slice = is_key = false;
    };
    units_.clear();
    for (std::size_t at = find_start_code(stream, 0); at < stream.size();
         at = find_start_code(stream, at + start_code_size)) {
        const NalUnit unit = unit_at(stream, at);
        if (unit.empty()) {
            continue;
        }
        if (has_slice && begins_access_unit(unit)) {
            hand_over();
        }
        units_.push_back(unit);
        has_slice = has_slice || is_slice(unit);
        is_key = is_key || type_of(unit) == NalType::sequence_parameters;
    }
    if (has_slice) {
        hand_over();
    }
    drop();
}

void AccessUnits::flush() {
    if (has_slice_) {
        hand_on();
    }
}

void AccessUnits::drop() {
    bytes_.clear();
    has_slice_ = false;
}

}  // namespace formats
