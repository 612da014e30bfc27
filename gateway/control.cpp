#include "gateway/control.h"

#include <sys/random.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace gateway {

std::string random_hex(std::size_t bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::vector<unsigned char> random(bytes);
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(bytes)) {
        throw std::runtime_error("the kernel gives no random bytes");
    }
    std::string text;
    for (const unsigned char byte : random) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

bool equal_in_constant_time(std::string_view a, std::string_view b) {
    unsigned difference = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < a.size(); ++i) {
        difference |=
            static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b.empty() ? 0 : b[i % b.size()]);
    }
    return difference == 0;
}

const Control::Holder* Control::take(std::string_view name, bool by_force, TimePoint now) {
    expire(now);
    if (holder_ && !by_force) {
        return nullptr;
    }
    std::string shown;
    std::ranges::copy_if(name.substr(0, longest_name), std::back_inserter(shown),
                         [](char c) { return c >= ' ' && c <= '~'; });
    holder_ = Holder{shown.empty() ? "somebody" : shown, random_hex(16), ++last_id_, now + term};
    return &*holder_;
}

bool Control::renew(std::string_view token, TimePoint now) {
    expire(now);
    if (!is_holder(token)) {
        return false;
    }
    holder_->expires = now + term;
    return true;
}

bool Control::give(std::string_view token) {
    if (!is_holder(token)) {
        return false;
    }
    holder_.reset();
    return true;
}

bool Control::expire(TimePoint now) {
    if (!holder_ || now < holder_->expires) {
        return false;
    }
    holder_.reset();
    return true;
}

bool Control::is_holder(std::string_view token) const {
    return holder_ && equal_in_constant_time(token, holder_->token);
}

}  // namespace gateway
