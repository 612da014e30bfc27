#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ctl/exit_codes.h"
#include "ctl/relay_client.h"
#include "ctl/seconds.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "formats/capture_file.h"

namespace ctl {
namespace {

using Outcome = RelayClient::Outcome;

int file_problem(const char* what, const std::string& file) {
    std::fprintf(stderr, "ardenvue-ctl: can't %s %s: %s\n", what, file.c_str(), std::strerror(errno));
    return unusable;
}

// Connects, and waits for the first bytes: they show that the link to the remote controller streams and that
// no other client is served.
int connect_and_wait(RelayClient& relay, const BoardOptions& board, double timeout,
                     std::span<const std::uint8_t>& first) {
    if (!relay.connect(board.address, board.relay_port)) {
        std::fprintf(stderr, "ardenvue-ctl: relay on %s, TCP port %u: %s\n", board.address.c_str(),
                     static_cast<unsigned>(board.relay_port), std::strerror(errno));
        return unusable;
    }
    switch (relay.receive(first, Clock::now() + seconds(timeout))) {
        case Outcome::bytes:
            return done;
        case Outcome::closed:
            std::fputs("ardenvue-ctl: the relay closed the connection\n", stderr);
            return unusable;
        case Outcome::nothing:
            break;
    }
    if (!stop_requested()) {
        std::fputs(
            "ardenvue-ctl: the relay sends nothing: there is no link to the remote controller, or another "
            "client is being served\n",
            stderr);
    }
    return silent;
}

}  // namespace

int run_capture(const BoardOptions& board, const CaptureOptions& options) {
    formats::CaptureWriter writer;
    if (!writer.open(options.file)) {
        return file_problem("write", options.file);
    }
    RelayClient relay;
    std::span<const std::uint8_t> bytes;
    if (const int code = connect_and_wait(relay, board, options.timeout, bytes); code != done) {
        return code;
    }
    const auto start = Clock::now();
    const auto end = options.seconds > 0 ? start + seconds(options.seconds) : Clock::time_point::max();
    unsigned long long total = 0;
    for (Outcome outcome = Outcome::bytes; outcome != Outcome::closed && Clock::now() < end;) {
        if (outcome == Outcome::bytes) {
            if (!writer.write(formats::Direction::from_remote, bytes)) {
                return file_problem("write", options.file);
            }
            total += bytes.size();
        } else if (stop_requested()) {
            break;
        }
        outcome = relay.receive(bytes, end);
        if (outcome == Outcome::closed) {
            std::fputs("ardenvue-ctl: the relay closed the connection\n", stderr);
        }
    }
    if (!writer.flush()) {
        return file_problem("write", options.file);
    }
    std::fprintf(stderr, "ardenvue-ctl: %llu bytes in %.1f s captured to %s\n", total,
                 in_seconds(Clock::now() - start), options.file.c_str());
    return done;
}

int run_inject(const BoardOptions& board, const InjectOptions& options) {
    formats::CaptureReader reader;
    if (!reader.open(options.file)) {
        return file_problem("read", options.file);
    }
    RelayClient relay;
    std::span<const std::uint8_t> dropped;
    if (const int code = connect_and_wait(relay, board, options.timeout, dropped); code != done) {
        return code;
    }
    const auto start = Clock::now();
    unsigned long long total = 0;
    while (const auto record = reader.next()) {
        // The relay must be read all the time.
        while (Clock::now() - start < record->time && !stop_requested()) {
            if (relay.receive(dropped, start + record->time) == Outcome::closed) {
                break;
            }
        }
        if (!relay.send(record->bytes)) {
            std::fputs("ardenvue-ctl: the relay closed the connection\n", stderr);
            return unusable;
        }
        total += record->bytes.size();
    }
    if (reader.damaged()) {
        std::fprintf(stderr, "ardenvue-ctl: %s is damaged after %llu bytes\n", options.file.c_str(), total);
        return unusable;
    }
    std::fprintf(stderr, "ardenvue-ctl: %llu bytes sent to the remote controller\n", total);
    return done;
}

}  // namespace ctl
