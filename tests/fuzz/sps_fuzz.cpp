// The SPS parser, against a walk written directly after ITU-T H.264, 7.3.2.1.1.
#include <memory>
#include <set>

#include "fuzz.h"
#include "include/h264parse.h"

namespace {

struct Ended {};

class Bits {
  public:
    explicit Bits(std::span<const std::uint8_t> bytes) : bytes_{bytes} {}

    std::uint32_t u(int count) {
        std::uint32_t value = 0;
        for (; count > 0; --count, ++next_) {
            if (next_ / 8 >= bytes_.size()) {
                throw Ended{};
            }
            value = value * 2 + (bytes_[next_ / 8] >> (7 - next_ % 8) & 1U);
        }
        return value;
    }
    std::uint32_t ue() {
        int zeros = 0;
        while (u(1) == 0 && zeros < 32) {
            ++zeros;
        }
        return static_cast<std::uint32_t>((std::uint64_t{1} << zeros) - 1 + u(zeros));
    }
    int se_mod_256() {  // all that a scaling list needs of a signed code
        const std::int64_t code = ue();
        return static_cast<int>((code % 2 != 0 ? (code + 1) / 2 : -(code / 2)) % 256);
    }

  private:
    std::span<const std::uint8_t> bytes_;
    std::size_t next_ = 0;
};

void scaling_list(Bits& bits, int size) {
    int last = 8;
    int next = 8;
    for (int i = 0; i < size; ++i) {
        next = next != 0 ? (last + bits.se_mod_256() + 256) % 256 : 0;
        last = next != 0 ? next : last;
    }
}

struct Size {
    std::uint32_t width;
    std::uint32_t height;
};

Size picture_size(Bits bits) {
    const std::uint32_t profile = bits.u(8);
    bits.u(16);
    bits.ue();
    if (std::set<std::uint32_t>{44, 83, 86, 100, 110, 118, 122, 244}.count(profile) != 0) {
        bits.u(bits.ue() == 3 ? 1 : 0);
        bits.ue();
        bits.ue();
        bits.u(1);
        if (bits.u(1) != 0) {
            for (int list = 0; list < 8; ++list) {
                if (bits.u(1) != 0) {
                    scaling_list(bits, list < 6 ? 16 : 64);
                }
            }
        }
    }
    bits.ue();
    const std::uint32_t order_type = bits.ue();
    if (order_type == 0) {
        bits.ue();
    } else if (order_type == 1) {
        bits.u(1);
        bits.ue();
        bits.ue();
        for (auto left = static_cast<std::int32_t>(bits.ue()); left > 0; --left) {
            bits.ue();
        }
    }
    bits.ue();
    bits.u(1);
    const std::uint32_t columns = bits.ue() + 1;
    const std::uint32_t rows = bits.ue() + 1;
    const std::uint32_t frames_only = bits.u(1);
    bits.u(frames_only == 0 ? 2 : 1);
    std::uint32_t crop[4]{};
    if (bits.u(1) != 0) {
        for (std::uint32_t& offset : crop) {
            offset = bits.ue();
        }
    }
    bits.u(1);
    return {16 * columns - 2 * (crop[0] + crop[1]), 16 * (2 - frames_only) * rows - 2 * (crop[2] + crop[3])};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::uint32_t untouched = 0xDEADBEEF;
    Size expected{untouched, untouched};
    bool whole = true;
    try {
        expected = picture_size(Bits{{data, size}});
    } catch (const Ended&) {
        whole = false;
    }
    H264Parse parser;
    auto width = static_cast<std::int32_t>(untouched);
    auto height = static_cast<std::int32_t>(untouched);
    const bool found = parser.ParseSps(data, static_cast<std::int32_t>(size), width, height);
    fuzz::require(found == whole, "whole or cut short");
    fuzz::require(static_cast<std::uint32_t>(width) == expected.width, "width");
    fuzz::require(static_cast<std::uint32_t>(height) == expected.height, "height");
    return 0;
}
