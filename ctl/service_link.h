// The main application's end of the UDP link: one socket on the status port. Nothing tells the service's
// command port but the source of its datagrams, so it is learnt from them; commands go back there.
#pragma once

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "ctl/reports.h"
#include "platform/file_descriptor.h"

namespace ctl {

struct LinkTotals {
    std::uint64_t lines = 0;
    std::uint64_t gimbal_focus_records = 0;
    std::uint64_t histogram_records = 0;
    std::uint64_t ignored = 0;  // malformed, or from somebody else than the service
};

class ServiceLink {
  public:
    // Binds the status port on an IPv4 address of this machine. Returns done, port_taken, or unusable;
    // problem() then says why.
    int open(const std::string& address, std::uint16_t port);
    const std::string& problem() const { return problem_; }

    // Takes in the datagrams that arrive until the time given, or until one was taken in; false when none
    // was.
    bool wait(CameraView& view, Clock::time_point until);
    // Takes in what has arrived, without waiting.
    void drain(CameraView& view);

    // True when a report came within the last two and a half seconds: while the link to the remote controller
    // is up, a line comes every second.
    bool up() const;
    // True once a whole status line came: the command port is known.
    bool knows_service() const { return service_.sin_port != 0; }
    // Where commands go, "127.0.0.1:40000".
    std::string service_name() const;

    // Sends one datagram, "!" and the JSON object, to the service. An empty datagram would end the service,
    // so there is no way to send one.
    bool send_command(std::string_view json);

    int descriptor() const { return socket_.get(); }
    const LinkTotals& totals() const { return totals_; }

  private:
    bool receive(CameraView& view);
    bool accept_source(const sockaddr_in& source, const Report& report);

    FileDescriptor socket_;
    std::string problem_;
    sockaddr_in service_{};
    Clock::time_point last_report_{};
    std::array<std::uint8_t, 4096> buffer_{};
    LinkTotals totals_;
};

// Sends one command to a command port that is known already, without the status port. False with errno set
// when the address is no IPv4 "HOST:PORT" or the datagram can't be sent.
bool send_command_to(const std::string& host_and_port, std::string_view json);

// What to say when no report comes.
std::string silence_message(std::uint16_t port);

// The process that holds the UDP port of this machine, "main-app (pid 812)", as far as /proc tells it; else
// empty.
std::string holder_of_udp_port(std::uint16_t port);

}  // namespace ctl
