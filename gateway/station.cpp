#include "gateway/station.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "client/link.h"
#include "formats/ipv4.h"
#include "gateway/address.h"
#include "gateway/json_text.h"

namespace gateway {
namespace {

using namespace std::chrono_literals;
using formats::is_same;

constexpr int pass_ms = 50;
// Of one kind in a pass, so that a flood of one can't keep the others waiting.
constexpr int most_datagrams = 64;
// The state is told ten times a second at most, and once when nothing comes.
constexpr auto shortest_pause = 95ms;
constexpr auto longest_pause = 1s;
// Any UDP datagram.
constexpr std::size_t largest_datagram = 65'536;
// What ardenvue-ctl asks to find the gateway that holds the port.
constexpr std::string_view question = "?gateway";

std::string_view as_text(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Ids of events go on across a restart of the gateway: microseconds of the wall clock.
std::uint64_t first_event_id() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(
                                          std::chrono::system_clock::now().time_since_epoch())
                                          .count());
}

sockaddr_in ipv4(const std::string& text, const char* option) {
    std::string reason;
    const auto parsed = parse_host_and_port(text);
    const auto address = parsed ? resolve(*parsed, AF_INET, reason) : std::nullopt;
    if (!address || parsed->port == 0) {
        throw std::runtime_error(std::string{option} + " takes HOST:PORT" +
                                 (reason.empty() ? "" : ": " + reason));
    }
    sockaddr_in result{};
    std::memcpy(&result, &*address, sizeof result);
    return result;
}

std::string service_event(std::string_view what) {
    return "{\"what\":\"" + std::string{what} + "\"}";
}

}  // namespace

Station::Station(const Options& options, const VideoHub& video, std::function<void()> wake)
    : video_{video},
      wake_{std::move(wake)},
      buffer_(largest_datagram),
      events_{first_event_id()},
      sticks_{options.sticks_name, options.guard_path} {
    if (!options.forward.empty()) {
        main_application_.emplace(ipv4(options.forward, "--forward"));
    }
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    if (ardenvue_link_open_unbound(&opened, nullptr, reason, sizeof reason) != 0) {
        throw std::runtime_error(reason);
    }
    link_.reset(opened);
    if (ardenvue_link_watch_frames(opened, options.ring_name.c_str()) != 0) {
        throw std::runtime_error(ardenvue_link_problem(opened));
    }
    bind_status_port(options);
    events_.add(EventKind::control, control_json(""));
    events_.add(EventKind::viewers, R"({"count":0})");
}

Station::~Station() = default;

void Station::bind_status_port(const Options& options) {
    const sockaddr_in address = ipv4(options.status_address + ":" + std::to_string(options.status_port),
                                     "--status-address with --status-port");
    status_ = FileDescriptor{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (status_ && bind(status_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return;
    }
    const int error = errno;
    const std::string port = "UDP port " + std::to_string(options.status_port);
    if (error == EADDRINUSE) {
        const std::string holder = client::holder_of_udp_port(options.status_port);
        throw PortTaken(port + " is held by " + (holder.empty() ? "another process" : holder) +
                        ": start the main application on another port, and the gateway with --forward to it");
    }
    throw std::runtime_error(port + ": " + std::strerror(error));
}

void Station::run(const std::function<bool()>& stop) {
    while (!stop()) {
        passes_ += 1;
        pollfd readable[2] = {{status_.get(), POLLIN, 0},
                              {main_application_ ? main_application_->descriptor() : -1, POLLIN, 0}};
        poll(readable, 2, pass_ms);
        take_status();
        take_from_main_application();
        if (look_after(Clock::now())) {
            wake_();
        }
    }
}

void Station::take_status() {
    for (int i = 0; i < most_datagrams; ++i) {
        sockaddr_in source{};
        socklen_t source_size = sizeof source;
        const ssize_t size = recvfrom(status_.get(), buffer_.data(), buffer_.size(), 0,
                                      reinterpret_cast<sockaddr*>(&source), &source_size);
        if (size < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        }
        if (size > 0) {
            take_datagram({buffer_.data(), static_cast<std::size_t>(size)}, source);
        }
    }
}

void Station::take_datagram(std::span<const std::uint8_t> datagram, const sockaddr_in& source) {
    if (as_text(datagram) == question) {
        sendto(status_.get(), url_.data(), url_.size(), 0, reinterpret_cast<const sockaddr*>(&source),
               sizeof source);
        return;
    }
    std::unique_lock guard{lock_};
    const bool is_report = ardenvue_link_take(link_.get(), datagram.data(), datagram.size(), &source) > 0;
    guard.unlock();
    if (is_report) {
        meet_service(source);
    } else if (!is_same(source, service_)) {
        return;
    }
    if (main_application_) {
        main_application_->send(datagram);
    }
    guard.lock();
    events_.add_report(as_text(datagram));
    is_state_due_ = true;
}

void Station::meet_service(const sockaddr_in& source) {
    if (is_same(source, service_)) {
        return;
    }
    service_ = source;
    if (main_application_) {
        main_application_->renew();
    }
}

void Station::take_from_main_application() {
    for (int i = 0; main_application_ && i < most_datagrams; ++i) {
        const auto datagram = main_application_->receive(buffer_);
        if (!datagram) {
            break;
        }
        sendto(status_.get(), datagram->data(), datagram->size(), 0,
               reinterpret_cast<const sockaddr*>(&service_), sizeof service_);
    }
}

bool Station::look_after(TimePoint now) {
    const std::lock_guard guard{lock_};
    if (const std::string holder = control_.holder() ? control_.holder()->name : ""; control_.expire(now)) {
        sticks_.let_go();
        say_control(holder);
    }
    // Without a main application behind it, whoever has the controls is the one that the service asks for.
    ardenvue_link_keep_present(link_.get(), control_.holder() && !main_application_);
    say_link_changes();
    const bool has_settled =
        commands_.look(link_.get(), now, [this](const SentCommand& command) { say_command(command); });
    const auto pause = now - state_told_;
    if (has_settled || (is_state_due_ && pause >= shortest_pause) || pause >= longest_pause) {
        char text[ARDENVUE_STATE_JSON_SIZE];
        ardenvue_state_json(link_.get(), text, sizeof text);
        events_.set_state(text);
        is_state_due_ = false;
        state_told_ = now;
        return true;
    }
    return false;
}

void Station::say_link_changes() {
    constexpr std::string_view words[] = {"lost", "silent", "live"};
    const ArdenvueLinkState state = ardenvue_link_state(link_.get());
    ArdenvueLinkTotals totals{};
    ardenvue_link_totals(link_.get(), &totals);
    if (std::exchange(restarts_, totals.restarts) != totals.restarts) {
        events_.add(EventKind::service, service_event("restarted"));
    }
    if (std::exchange(link_state_, state) != state) {
        events_.add(EventKind::service, service_event(words[state]));
        state_told_ = {};
    }
}

std::string Station::state_json() {
    const std::lock_guard guard{lock_};
    char text[ARDENVUE_STATE_JSON_SIZE];
    ardenvue_state_json(link_.get(), text, sizeof text);
    return text;
}

void Station::tell(Listener& listener, std::string& text) {
    const std::lock_guard guard{lock_};
    events_.tell(listener, Clock::now(), text);
}

bool Station::has_news(const Listener& listener) {
    const std::lock_guard guard{lock_};
    return events_.has_news(listener, Clock::now());
}

void Station::say_viewers(std::size_t count) {
    const std::lock_guard guard{lock_};
    events_.add(EventKind::viewers, "{\"count\":" + std::to_string(count) + "}");
}

void Station::say_new_header() {
    const StreamFacts facts = video_.facts();
    char text[200];
    std::snprintf(text, sizeof text,
                  "{\"codec\":\"%s\",\"width\":%d,\"height\":%d,\"generation\":%llu,\"origin\":%lld.%09lld}",
                  facts.codec.c_str(), static_cast<int>(facts.size.width),
                  static_cast<int>(facts.size.height), static_cast<unsigned long long>(facts.generation),
                  static_cast<long long>(facts.origin_ns / 1'000'000'000),
                  static_cast<long long>(facts.origin_ns % 1'000'000'000));
    const std::lock_guard guard{lock_};
    events_.add(EventKind::video, text);
}

StationTotals Station::totals() {
    const std::lock_guard guard{lock_};
    StationTotals totals{};
    ardenvue_link_totals(link_.get(), &totals.link);
    totals.link_state = ardenvue_link_state(link_.get());
    for (const ArdenvueReport report : {ARDENVUE_STATUS_LINE, ARDENVUE_GIMBAL_FOCUS, ARDENVUE_HISTOGRAM}) {
        totals.ages_ns[report] = ardenvue_link_report_age(link_.get(), report);
    }
    ArdenvueStatus status{};
    if (ardenvue_link_status(link_.get(), &status) == 0) {
        totals.status = status;
    }
    return totals;
}

}  // namespace gateway
