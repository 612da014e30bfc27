#include "ctl/service_link.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>

#include "ctl/exit_codes.h"
#include "ctl/stop_signal.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr auto report_silence = 2500ms;

std::optional<sockaddr_in> parse_address(const std::string& host, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        return std::nullopt;
    }
    return address;
}

bool send_to(int fd, const sockaddr_in& address, std::string_view json) {
    std::string datagram{"!"};
    datagram += json;
    return sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                  sizeof address) == static_cast<ssize_t>(datagram.size());
}

}  // namespace

int ServiceLink::open(const std::string& address, std::uint16_t port) {
    const auto bound = parse_address(address, port);
    if (!bound) {
        problem_ = "\"" + address + "\" is no IPv4 address";
        return unusable;
    }
    socket_ = FileDescriptor{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (socket_ && bind(socket_.get(), reinterpret_cast<const sockaddr*>(&*bound), sizeof *bound) == 0) {
        return done;
    }
    problem_ = "UDP port " + std::to_string(port) + " on " + address + ": " + std::strerror(errno);
    if (errno != EADDRINUSE) {
        return unusable;
    }
    const std::string holder = holder_of_udp_port(port);
    problem_ = "UDP port " + std::to_string(port) + " is held by " +
               (holder.empty() ? "another process" : holder) +
               ": the status goes to one main application per machine.\nStop it, or start the service with "
               "another destination port (-s) and give that port here with --port.";
    return port_taken;
}

bool ServiceLink::wait(CameraView& view, Clock::time_point until) {
    for (;;) {
        if (receive(view)) {
            return true;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left <= 0ms) {
            return false;
        }
        if (stop_requested()) {
            return false;
        }
        pollfd readable{socket_.get(), POLLIN, 0};
        poll(&readable, 1, static_cast<int>(std::min(left, std::chrono::milliseconds{60'000}).count()));
    }
}

void ServiceLink::drain(CameraView& view) {
    // Bounded, so that a flood on the port can't keep the caller here.
    for (int i = 0; i < 1000 && receive(view); ++i) {
    }
}

// Takes in datagrams up to and including the first good one; false when none is waiting.
bool ServiceLink::receive(CameraView& view) {
    for (int i = 0; i < 1000; ++i) {
        sockaddr_in source{};
        socklen_t source_size = sizeof source;
        const ssize_t size = recvfrom(socket_.get(), buffer_.data(), buffer_.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&source), &source_size);
        if (size < 0) {
            return false;
        }
        const auto length = static_cast<std::size_t>(size);
        Report report;
        if (length <= buffer_.size()) {
            report = parse_report({buffer_.data(), length});
        }
        if (!accept_source(source, report)) {
            totals_.ignored += 1;
            continue;
        }
        last_report_ = Clock::now();
        totals_.lines += std::holds_alternative<StatusLine>(report) ? 1 : 0;
        totals_.gimbal_focus_records += std::holds_alternative<GimbalFocus>(report) ? 1 : 0;
        totals_.histogram_records += std::holds_alternative<Histogram>(report) ? 1 : 0;
        view.take(std::move(report), last_report_);
        return true;
    }
    return false;
}

// The service is whoever sends whole status lines. While it is heard, nobody else is; when it was restarted
// it sends from another port, and is taken up there once the old one has been silent.
bool ServiceLink::accept_source(const sockaddr_in& source, const Report& report) {
    if (std::holds_alternative<std::monostate>(report)) {
        return false;
    }
    if (source.sin_addr.s_addr == service_.sin_addr.s_addr && source.sin_port == service_.sin_port) {
        return true;
    }
    if (up() || !std::holds_alternative<StatusLine>(report)) {
        return false;
    }
    service_ = source;
    return true;
}

bool ServiceLink::up() const {
    return knows_service() && Clock::now() - last_report_ <= report_silence;
}

std::string ServiceLink::service_name() const {
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &service_.sin_addr, text, sizeof text);
    return std::string{text} + ":" + std::to_string(ntohs(service_.sin_port));
}

bool ServiceLink::send_command(std::string_view json) {
    return knows_service() && send_to(socket_.get(), service_, json);
}

std::string silence_message(std::uint16_t port) {
    return "no status arrives on UDP port " + std::to_string(port) +
           ": the service does not run, sends elsewhere, or has no link to the remote controller";
}

bool send_command_to(const std::string& host_and_port, std::string_view json) {
    const std::size_t colon = host_and_port.find(':');
    std::uint16_t port = 0;
    std::optional<sockaddr_in> address;
    if (colon != std::string::npos) {
        const char* end = host_and_port.data() + host_and_port.size();
        const auto parsed = std::from_chars(host_and_port.data() + colon + 1, end, port);
        if (parsed.ec == std::errc{} && parsed.ptr == end && port != 0) {
            address = parse_address(host_and_port.substr(0, colon), port);
        }
    }
    if (!address) {
        errno = EINVAL;
        return false;
    }
    const FileDescriptor fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    return fd && send_to(fd.get(), *address, json);
}

}  // namespace ctl
