// What stands behind an ArdenvueLink: the socket, whom it listens to, what it heard and what it sent.
#pragma once

#include <netinet/in.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ardenvue/commands.h"
#include "ardenvue/state.h"
#include "client/command_words.h"
#include "client/frame_watch.h"
#include "client/reports.h"
#include "platform/file_descriptor.h"

namespace client {

// A command that went out, and what became of it.
struct SentCommand {
    int number = 0;
    Nanoseconds time = 0;
    Awaited awaited{};       // without a row: no report shows it
    bool is_known = false;   // what it would change had been reported
    bool was_there = false;  // and was as the command wants it
    int confirmation = 0;    // an ArdenvueConfirmation; 0: not yet
};

// The process that holds the UDP port of this machine, "main-app (pid 812)", as far as /proc tells it; else
// empty.
std::string holder_of_udp_port(std::uint16_t port);

}  // namespace client

struct ArdenvueLink {
    // Binds the status port, and only opens a socket to send from.
    int bind_port(const char* address, std::uint16_t port);
    int open_unbound(const char* command_port);

    int wait(ArdenvueReport report, int timeout_ms);
    // Takes in datagrams up to and including the first good one; what it was, or ARDENVUE_ERROR_TIMEOUT when
    // none is waiting.
    int receive();
    int take(std::span<const std::uint8_t> datagram, const sockaddr_in* source);
    // Takes in what has arrived, without waiting.
    void drain();

    // Sends "!" and the object. An empty datagram would end the service, so there is no way to send one.
    int send(std::string_view json);
    // The same for a command that the state is to show.
    int send_command(const client::Awaited& awaited, std::string_view json);
    const client::SentCommand* find_sent(int number) const;

    bool knows_service() const { return service.sin_port != 0; }
    bool hears_service(client::Nanoseconds now) const;
    void look_after(client::Nanoseconds now);

    // Notes why a call failed; returns the code.
    int fail(int code, std::string_view why);
    int fail_with_errno(const char* what);

    FileDescriptor socket;
    bool is_bound = false;
    bool keeps_present = false;
    client::CameraState state;
    client::FrameWatch frames;
    ArdenvueLinkTotals totals{};
    std::array<char, ARDENVUE_REASON_SIZE> problem{};
    sockaddr_in service{};  // where commands go; port 0: not known
    std::array<char, 24> service_name{};

  private:
    bool is_service(const sockaddr_in& source, ArdenvueReport report, client::Nanoseconds now) const;
    client::Nanoseconds until_next_duty(client::Nanoseconds now) const;
    void take_up(const sockaddr_in& source);
    void note_confirmations();

    client::Report parsed;
    bool is_known_by_line = false;  // anybody can make up a record; a line takes more
    client::Nanoseconds last_report = 0;
    client::Nanoseconds last_sent = 0;
    std::array<client::SentCommand, 64> sent{};
    int last_number = 0;
    std::array<std::uint8_t, 4096> buffer{};
};
