// One hand on the controls: who has them, for how long, and how they change hands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/clock.h"

namespace gateway {

// As many random bits as two hexadecimal digits a byte tell, of the kernel's generator.
std::string random_hex(std::size_t bytes);

// Whether two texts are the same, in a time that doesn't tell where they differ.
bool equal_in_constant_time(std::string_view a, std::string_view b);

class Control {
  public:
    static constexpr std::chrono::seconds term{5};
    static constexpr std::size_t longest_name = 40;

    struct Holder {
        std::string name;
        std::string token;
        std::uint64_t id;
        TimePoint expires;
    };

    // Takes the controls for a term. Null while somebody else has them, unless by force. A name is made of
    // what is printable in the given one.
    const Holder* take(std::string_view name, bool by_force, TimePoint now);
    bool renew(std::string_view token, TimePoint now);
    bool give(std::string_view token);
    // True when a term is over; the controls are free then.
    bool expire(TimePoint now);

    bool is_holder(std::string_view token) const;
    const std::optional<Holder>& holder() const { return holder_; }

  private:
    std::optional<Holder> holder_;
    std::uint64_t last_id_ = 0;
};

}  // namespace gateway
