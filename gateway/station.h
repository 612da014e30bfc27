// The gateway in the place of the main application: it holds the status port, passes on what comes, knows the
// state, and gives the commands of whoever has the controls.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ardenvue/json.h"
#include "gateway/command_watch.h"
#include "gateway/control.h"
#include "gateway/event_log.h"
#include "gateway/main_application.h"
#include "gateway/options.h"
#include "gateway/stick_hand.h"
#include "gateway/video_hub.h"
#include "platform/file_descriptor.h"

namespace gateway {

// An answer to a request that changes something: an HTTP status, and a JSON object.
struct Answer {
    unsigned status;
    std::string json;
    int awaited_command = 0;  // the answer is this command's, once it is settled
};

Answer refusal(unsigned status, const std::string& why);

struct CommandRequest {
    std::string words;  // or
    std::string json;   // an object as it is
    double wait = 0;    // seconds in which the state must show it; 0: don't wait
    std::string token;  // of the controls; empty: the sender has not taken them
};

// By ArdenvueLinkState, as the state's JSON has them.
constexpr std::string_view link_state_words[] = {"down", "silent", "live"};

struct StationTotals {
    ArdenvueLinkTotals link;
    ArdenvueLinkState link_state;
    std::int64_t ages_ns[4];  // by ArdenvueReport; -1: none yet
    std::optional<ArdenvueStatus> status;
};

class Station {
  public:
    // Binds the status port. The address is where the gateway is found; wake is called, by any thread, when
    // there is news for listeners. Throws std::runtime_error with what is to be told, PortTaken when another
    // process holds the port.
    struct PortTaken;
    Station(const Options& options, const VideoHub& video, std::function<void()> wake);
    ~Station();
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    // ---- The main thread ----

    // The gateway's own address, told to who asks at the status port.
    void set_address(std::string url) { url_ = std::move(url); }
    // Serves the port until stop is true, which is looked at some twenty times a second and after a signal.
    void run(const std::function<bool()>& stop);

    // ---- Any thread ----

    std::string state_json();
    // New bytes for a listener, appended.
    void tell(Listener& listener, std::string& text);
    bool has_news(const Listener& listener);
    void say_viewers(std::size_t count);
    void say_new_header();
    StationTotals totals();
    // Counts on while the main thread runs.
    std::uint64_t passes() const { return passes_; }

    Answer send(const CommandRequest& request);
    // The answer to a request that waited for this command; null while it isn't settled.
    std::optional<Answer> settled(int command);
    Answer take_control(const std::string& name, bool by_force);
    Answer renew_control(const std::string& token);
    Answer give_control(const std::string& token);
    Answer control();
    Answer move_sticks(const std::string& token, const std::array<double, 3>& inputs);

  private:
    struct LinkCloser {
        void operator()(ArdenvueLink* link) const { ardenvue_link_close(link); }
    };

    void bind_status_port(const Options& options);
    void take_status();
    void take_datagram(std::span<const std::uint8_t> datagram, const sockaddr_in& source);
    void meet_service(const sockaddr_in& source);
    void take_from_main_application();
    // Whatever is due; true when there is news.
    bool look_after(TimePoint now);
    void say_link_changes();
    void say_control(const std::string& taken_from);
    std::string control_json(const std::string& taken_from) const;
    void say_command(const SentCommand& command);
    std::optional<Answer> refuse_hand(const std::string& token) const;

    const VideoHub& video_;
    const std::function<void()> wake_;
    std::string url_;
    FileDescriptor status_;
    std::atomic<std::uint64_t> passes_{0};

    // The main thread's own.
    std::optional<MainApplication> main_application_;
    sockaddr_in service_{};  // port 0: not met yet
    std::vector<std::uint8_t> buffer_;

    std::mutex lock_;  // over all that follows
    std::unique_ptr<ArdenvueLink, LinkCloser> link_;
    EventLog events_;
    Control control_;
    CommandWatch commands_;
    std::optional<ArdenvueLinkState> link_state_;
    std::uint64_t restarts_ = 0;
    bool is_state_due_ = true;
    TimePoint state_told_{};

    StickHand sticks_;  // has a lock of its own
};

struct Station::PortTaken : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace gateway
