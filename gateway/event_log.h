// What happens, as every listener hears it: numbered events, of which a listener that comes back gets those
// that it missed, and the state, of which only the newest counts. Not for several threads at once.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include "gateway/clock.h"

namespace gateway {

enum class EventKind { control, command, video, service, viewers };
constexpr std::size_t event_kinds = 5;

// Where a listener stands.
struct Listener {
    std::uint64_t after = 0;     // id of the newest event that it has; 0: none
    std::uint64_t state = 0;     // version that it has
    std::uint64_t report = 0;    // newest datagram that it has
    bool hears_reports = false;  // wants the datagrams too
    bool has_begun = false;
    TimePoint last_sent{};
};

class EventLog {
  public:
    static constexpr std::size_t most_events = 128;
    static constexpr std::size_t most_reports = 64;
    // A listener hears something at least this often, so that it knows that it is still connected.
    static constexpr std::chrono::seconds heartbeat{2};

    // Ids go on above this one.
    explicit EventLog(std::uint64_t first_id) : last_id_{first_id} {}

    void add(EventKind kind, const std::string& data);
    void set_state(std::string json);
    // A datagram as it came.
    void add_report(std::string_view datagram);

    // Appends what the listener has not heard to the text, as server-sent events (HTML Living Standard, 9.2).
    // A newcomer hears the newest of each kind, but no commands of old; one with a Last-Event-ID of ours, in
    // after, the commands that it missed.
    void tell(Listener& listener, TimePoint now, std::string& text) const;
    bool has_news(const Listener& listener, TimePoint now) const;

  private:
    struct Event {
        std::uint64_t id = 0;  // 0: none yet
        EventKind kind{};
        std::string data;
    };
    void begin(Listener& listener, std::string& text) const;

    std::uint64_t last_id_;
    std::deque<Event> events_;
    std::array<Event, event_kinds> newest_;
    std::string state_;
    std::uint64_t state_version_ = 0;
    std::deque<std::string> reports_;  // as base64
    std::uint64_t last_report_ = 0;
};

// RFC 4648, section 4.
std::string base64(std::string_view bytes);

}  // namespace gateway
