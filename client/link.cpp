#include "client/link.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>

#include "client/monotonic.h"
#include "formats/ipv4.h"

namespace client {
namespace {

constexpr Nanoseconds millisecond = 1'000'000;

// While the link to the remote controller is up, a line comes every second.
constexpr Nanoseconds report_silence = 2500 * millisecond;
// The service takes a main application for lost after a second without a datagram from it.
constexpr Nanoseconds presence_interval = 500 * millisecond;
// While there are frames to look for.
constexpr Nanoseconds look_interval = 200 * millisecond;
// A flood on the port can't keep the caller for longer than this takes.
constexpr Nanoseconds endless = std::numeric_limits<Nanoseconds>::max();
constexpr int most_datagrams = 1000;
constexpr std::size_t longest_object = 9'999;

std::optional<sockaddr_in> parse_address(const char* host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (inet_pton(AF_INET, host, &address.sin_addr) != 1) {
        return std::nullopt;
    }
    return address;
}

// "127.0.0.1:40000"
std::optional<sockaddr_in> parse_host_and_port(std::string_view text) {
    const std::size_t colon = text.find(':');
    std::uint16_t port = 0;
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + colon + 1, end, port);
    if (parsed.ec != std::errc{} || parsed.ptr != end || port == 0) {
        return std::nullopt;
    }
    return parse_address(std::string{text.substr(0, colon)}.c_str(), port);
}

FileDescriptor new_socket() {
    return FileDescriptor{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
}

}  // namespace
}  // namespace client

using client::Nanoseconds;

int ArdenvueLink::fail(int code, std::string_view why) {
    const std::size_t size = std::min(why.size(), problem.size() - 1);
    std::copy_n(why.begin(), size, problem.begin());
    problem[size] = '\0';
    return code;
}

int ArdenvueLink::fail_with_errno(const char* what) {
    std::snprintf(problem.data(), problem.size(), "%s: %s", what, std::strerror(errno));
    return ARDENVUE_ERROR_SYSTEM;
}

int ArdenvueLink::bind_port(const char* address, std::uint16_t port) {
    const auto bound = client::parse_address(address, port);
    const std::string name{address};
    if (!bound) {
        return fail(ARDENVUE_ERROR_ARGUMENT, "\"" + name + "\" is no IPv4 address");
    }
    socket = client::new_socket();
    if (socket && bind(socket.get(), reinterpret_cast<const sockaddr*>(&*bound), sizeof *bound) == 0) {
        is_bound = true;
        return 0;
    }
    if (errno != EADDRINUSE) {
        return fail_with_errno(("UDP port " + std::to_string(port) + " on " + name).c_str());
    }
    const std::string holder = client::holder_of_udp_port(port);
    return fail(ARDENVUE_ERROR_BUSY, "UDP port " + std::to_string(port) + " is held by " +
                                         (holder.empty() ? "another process" : holder) +
                                         ": the status goes to one main application per machine");
}

int ArdenvueLink::open_unbound(const char* command_port) {
    if (command_port != nullptr) {
        const auto address = client::parse_host_and_port(command_port);
        if (!address) {
            return fail(ARDENVUE_ERROR_ARGUMENT,
                        "a command port is an IPv4 address and a port, as 127.0.0.1:40000");
        }
        service = *address;
        is_known_by_line = true;
    }
    socket = client::new_socket();
    return socket ? 0 : fail_with_errno("UDP socket");
}

int ArdenvueLink::wait(ArdenvueReport report, int timeout_ms) {
    if (!is_bound) {
        return fail(ARDENVUE_ERROR_ARGUMENT, "a link without the status port has nothing to wait for");
    }
    const Nanoseconds start = client::monotonic_now();
    for (int taken = 0;;) {
        const Nanoseconds now = client::monotonic_now();
        look_after(now);
        const Nanoseconds left =
            timeout_ms < 0 ? client::endless : start + timeout_ms * client::millisecond - now;
        if (const int got = receive(); got > 0) {
            if (report == ARDENVUE_ANY_REPORT || got == report) {
                return got;
            }
            if (left > 0 || ++taken < client::most_datagrams) {
                continue;
            }
        }
        if (left <= 0) {
            return ARDENVUE_ERROR_TIMEOUT;
        }
        const Nanoseconds sleep = std::min(left, until_next_duty(now));
        const Nanoseconds rounded_up =
            (std::min(sleep, Nanoseconds{60'000} * client::millisecond) + client::millisecond - 1) /
            client::millisecond;
        pollfd readable{socket.get(), POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(rounded_up)) < 0 && errno == EINTR) {
            return ARDENVUE_ERROR_INTERRUPTED;
        }
    }
}

int ArdenvueLink::receive() {
    for (int i = 0; i < client::most_datagrams; ++i) {
        sockaddr_in source{};
        socklen_t source_size = sizeof source;
        const ssize_t size = recvfrom(socket.get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&source), &source_size);
        if (size < 0) {
            break;
        }
        // One that does not fit is none of the service's.
        const auto length = static_cast<std::size_t>(size);
        const int got = take({buffer.data(), length <= buffer.size() ? length : 0}, &source);
        if (got > 0) {
            return got;
        }
    }
    return ARDENVUE_ERROR_TIMEOUT;
}

void ArdenvueLink::drain() {
    for (int i = 0; is_bound && i < client::most_datagrams && receive() > 0; ++i) {
    }
}

int ArdenvueLink::take(std::span<const std::uint8_t> datagram, const sockaddr_in* source) {
    const Nanoseconds now = client::monotonic_now();
    parsed.parse(datagram);
    const ArdenvueReport report = parsed.kind;
    if (report == ARDENVUE_ANY_REPORT || (source != nullptr && !is_service(*source, report, now))) {
        totals.ignored += 1;
        return ARDENVUE_ERROR_DATA;
    }
    if (source != nullptr) {
        take_up(*source);
        is_known_by_line = is_known_by_line || report == ARDENVUE_STATUS_LINE;
    }
    state.take(parsed, now);
    last_report = now;
    totals.status_lines += report == ARDENVUE_STATUS_LINE ? 1U : 0U;
    totals.gimbal_focus_records += report == ARDENVUE_GIMBAL_FOCUS ? 1U : 0U;
    totals.histogram_records += report == ARDENVUE_HISTOGRAM ? 1U : 0U;
    note_confirmations();
    return report;
}

// The service is whoever sends reports. While it is heard, nobody else is, but that a whole line is believed
// before a record; when it was restarted it sends from another port, and is taken up there once the old one
// has been silent.
bool ArdenvueLink::is_service(const sockaddr_in& source, ArdenvueReport report, Nanoseconds now) const {
    return formats::is_same(source, service) || !hears_service(now) ||
           (report == ARDENVUE_STATUS_LINE && !is_known_by_line);
}

void ArdenvueLink::take_up(const sockaddr_in& source) {
    if (formats::is_same(source, service)) {
        return;
    }
    totals.restarts += knows_service() && is_known_by_line ? 1U : 0U;
    service = source;
    is_known_by_line = false;
}

bool ArdenvueLink::hears_service(Nanoseconds now) const {
    return last_report != 0 && now - last_report <= client::report_silence;
}

void ArdenvueLink::look_after(Nanoseconds now) {
    frames.look(now);
    if (keeps_present && knows_service() && now - last_sent >= client::presence_interval) {
        send("{}");
    }
}

client::Nanoseconds ArdenvueLink::until_next_duty(Nanoseconds now) const {
    const Nanoseconds look = frames.is_on() ? client::look_interval : client::endless;
    const bool sends = keeps_present && knows_service();
    return std::min(look, sends ? last_sent + client::presence_interval - now : client::endless);
}

int ArdenvueLink::send(std::string_view json) {
    if (!knows_service()) {
        return fail(ARDENVUE_ERROR_NONE_YET,
                    "the service has not been heard yet, so nothing tells its command port");
    }
    if (json.size() > client::longest_object) {
        return fail(ARDENVUE_ERROR_COMMAND, "a command has at most 9,999 bytes");
    }
    char mark = '!';
    iovec pieces[] = {{&mark, 1}, {const_cast<char*>(json.data()), json.size()}};
    msghdr message{};
    message.msg_name = &service;
    message.msg_namelen = sizeof service;
    message.msg_iov = pieces;
    message.msg_iovlen = std::size(pieces);
    last_sent = client::monotonic_now();
    return sendmsg(socket.get(), &message, 0) < 0 ? fail_with_errno("can't send") : 0;
}

int ArdenvueLink::send_command(const client::Awaited& awaited, std::string_view json) {
    drain();  // what came before the command says nothing about it
    client::SentCommand command{};
    command.number = last_number == INT_MAX ? 1 : last_number + 1;
    command.time = client::monotonic_now();
    command.awaited = awaited;
    if (awaited.row != nullptr && awaited.row->shown != nullptr) {
        const bool is_in_line = client::is_status_key(awaited.row->reported_in);
        command.is_known = state.newest(is_in_line ? ARDENVUE_STATUS_LINE : ARDENVUE_GIMBAL_FOCUS) != 0;
        command.was_there = awaited.row->shown(state.since(0), awaited);
        if (state.line_time != 0) {
            command.awaited.shots_before = client::status_values(state.line, 0).shots_left;
        }
    }
    if (const int code = send(json); code < 0) {
        return code;
    }
    last_number = command.number;
    sent[static_cast<std::size_t>(command.number) % sent.size()] = command;
    return command.number;
}

const client::SentCommand* ArdenvueLink::find_sent(int number) const {
    const client::SentCommand& there = sent[static_cast<std::size_t>(number) % sent.size()];
    return number > 0 && there.number == number ? &there : nullptr;
}

void ArdenvueLink::note_confirmations() {
    for (client::SentCommand& command : sent) {
        const client::CommandRow* const row = command.awaited.row;
        if (command.confirmation == 0 && row != nullptr && row->shown != nullptr &&
            row->shown(state.since(command.time), command.awaited)) {
            command.confirmation = !command.is_known   ? ARDENVUE_SHOWN
                                   : command.was_there ? ARDENVUE_WAS_THERE
                                                       : ARDENVUE_CAME;
        }
    }
}
