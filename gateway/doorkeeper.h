// Who may come in: requests of this site's own page and of programs, with the token where there is one.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "gateway/clock.h"

namespace gateway {

// What of a request decides whether it is let in. A header that is missing is null.
struct Visitor {
    std::string address;  // of the peer
    std::optional<std::string> host;
    std::optional<std::string> origin;
    std::optional<std::string> authorization;
    bool reads_only;     // the method changes nothing
    bool asks_for_page;  // a file of the page, which holds no secret
};

struct Refusal {
    unsigned status;
    std::string why;
};

// Not for several threads at once.
class Doorkeeper {
  public:
    struct Rules {
        std::string token;  // empty: everybody on this machine may do everything
        bool open_reading = false;
        std::vector<std::string> hosts;    // names, besides addresses and this machine's own name
        std::vector<std::string> origins;  // other sites that may use it, "https://fleet.example"
    };
    // Wrong tokens of one address in a minute, and how many addresses are remembered.
    static constexpr std::size_t most_tries = 10;
    static constexpr std::chrono::minutes tries_are_kept{1};
    static constexpr std::size_t most_addresses = 256;

    explicit Doorkeeper(Rules rules);

    // Null when the visitor may come in.
    std::optional<Refusal> refuse(const Visitor& visitor, TimePoint now);
    // Whether another site's page may use the gateway.
    bool is_allowed_origin(const std::string& origin) const;

  private:
    bool is_own_name(const std::string& host) const;
    std::optional<Refusal> refuse_token(const Visitor& visitor, TimePoint now);

    Rules rules_;
    std::map<std::string, std::deque<TimePoint>> wrong_tries_;
};

// The token of a file that only its owner may read: at least 32 hexadecimal digits, or as many characters.
// Throws std::runtime_error with what is wrong with it.
std::string read_token(const std::string& path);

}  // namespace gateway
