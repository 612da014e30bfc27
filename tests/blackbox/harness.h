// The service as it is shipped, on a simulated board of its own: what black-box tests are written on.
//
//     TEST(Relay, PassesTheStreamOn) {
//         Service service;                      // starts it; EXPECTs nothing yet
//         service.stream();                     // enumerates, sends the first bytes, keeps the link alive
//         service.send(frame);                  // whole stream frames to the OUT endpoint
//         service.command(R"({"cmd":…})");      // a datagram of the main application, "!" put in front
//         EXPECT_EQ(service.next_packet(), expected);       // what came out of the IN endpoint
//         EXPECT_TRUE(service.said("Client connected"));    // on the standard error stream
//         EXPECT_EQ(service.end_code(), 3);                 // waits for the end
//     }
//
// A start costs about a second and a half, so a fixture shares one service among its cases where it can. The
// service ends itself when nothing streams for 5 s: keep-alive frames are sent in between, and flush what was
// sent before them, since the service handles a frame when one byte more has arrived.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/board/loopback.h"
#include "sim/remote/host.h"
#include "tests/blackbox/board_under_test.h"
#include "tests/blackbox/bound_port.h"

namespace blackbox {

using sim::Bytes;
using sim::Datagram;
using sim::Milliseconds;
using sim::UdpSocket;

// All bytes of a file; none when there is no such file.
inline Bytes contents(const std::filesystem::path& path) {
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

// Long enough for a sanitized build on a machine that does much else; nothing waits that long when all is
// well.
constexpr Milliseconds patience{20'000};

// Waits for a condition that nothing announces; false when it never held.
inline bool eventually(const std::function<bool()>& condition, Milliseconds timeout = patience) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(Milliseconds{2});
    }
    return true;
}

// An "I" frame without packets.
inline const Bytes keep_alive_frame = {0x55, 0xCC, 0x49, 0x57, 0x00, 0x00, 0x00, 0x00};

struct ServiceSetup {
    BoardSetup board = {};
    std::vector<std::string> arguments = {};         // after "-s PORT" of the main application's socket
    std::vector<std::string> environment = {};       // "NAME=value"
    bool with_port = true;                           // false: the arguments are all there are
    std::vector<std::string> faults = {};            // of docs/simulated-board.md, from the start
    std::optional<int> error_stream = std::nullopt;  // see sim::ServiceOptions
};

class Service {
  public:
    explicit Service(ServiceSetup setup = {}) : setup_{std::move(setup)}, board_{complete(setup_.board)} {
        for (const std::string& fault : setup_.faults) {
            set_fault(board_, fault);
        }
        start();
    }
    ~Service() {
        stop_keep_alive();
        expect_no_sanitizer_report();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    BoardUnderTest& board() { return board_; }
    auto& cable() { return board_.cable(); }

    // Starts it (again, after it ended) on the same board.
    void start() {
        stop_keep_alive();
        expect_no_sanitizer_report();
        command_port_ = 0;
        sim::ServiceOptions options{SERVICE_PATH, {}, setup_.environment, ""};
        options.error_stream = setup_.error_stream;
        if (setup_.with_port) {
            options.arguments = {"-s", std::to_string(main_application_.port())};
        }
        options.arguments.insert(options.arguments.end(), setup_.arguments.begin(), setup_.arguments.end());
        board_.start(options);
    }

    // ---- The link to the remote controller ----

    // Enumerates, and waits until the endpoints are open: nothing streams yet.
    void enumerate(sim::Speed speed = sim::Speed::high) {
        ASSERT_THAT(sim::enumerate(cable(), speed, patience), testing::IsEmpty()) << board_.errors();
        ASSERT_TRUE(cable().wait_for_endpoints(patience)) << board_.errors();
    }

    // Enumerates and streams keep-alive frames from now on. A write of the service waits for the read in
    // progress, so what it sends comes out at their pace.
    void stream(Milliseconds period = Milliseconds{100}) {
        ASSERT_NO_FATAL_FAILURE(enumerate());
        ASSERT_NO_FATAL_FAILURE(keep_alive(period));
    }
    void keep_alive(Milliseconds period = Milliseconds{100}) {
        ASSERT_TRUE(send(keep_alive_frame)) << board_.errors();
        keeping_alive_ = true;
        sender_ = std::thread{[this, period] {
            while (keeping_alive_) {
                send(keep_alive_frame);
                std::this_thread::sleep_for(period);
            }
        }};
    }

    void stop_keep_alive() {
        keeping_alive_ = false;
        if (sender_.joinable()) {
            sender_.join();
        }
    }

    // Sends the bytes in packets of 512; returns when the service has read them. Whole frames, while
    // keep-alive frames are sent in between.
    bool send(std::span<const std::uint8_t> bytes) {
        const std::lock_guard lock{sending_};
        return cable().bulk_out(bytes);
    }

    // Sends frames, and a keep-alive frame so that the last of them is handled at once.
    bool send_frames(std::span<const std::uint8_t> frames) {
        Bytes bytes(frames.begin(), frames.end());
        bytes.insert(bytes.end(), keep_alive_frame.begin(), keep_alive_frame.end());
        return send(bytes);
    }

    // The next packet from the IN endpoint; empty when none came in time.
    Bytes next_packet(Milliseconds timeout = patience) { return cable().bulk_in(timeout).value_or(Bytes{}); }

    // ---- The main application ----

    UdpSocket& main_application() { return main_application_; }

    // The service's command port, learnt from its first datagram; 0 when none came. Only while it streams.
    std::uint16_t command_port() {
        if (command_port_ == 0) {
            if (const std::optional<Datagram> datagram = main_application_.receive(patience)) {
                command_port_ = datagram->from;
            }
        }
        return command_port_;
    }

    // The same as the kernel has it: the one bound UDP socket of a service that does not stream yet.
    std::uint16_t bound_command_port() {
        eventually([this] { return (command_port_ = bound_udp_port(board_.process())) != 0; });
        return command_port_;
    }

    // Sends a datagram to the command port, as it is; a command, with the "!" put in front of its JSON text.
    void datagram(std::span<const std::uint8_t> bytes) {
        ASSERT_TRUE(main_application_.send(bytes, command_port()));
    }
    void command(std::string_view json) {
        Bytes bytes(1 + json.size(), '!');
        std::copy(json.begin(), json.end(), bytes.begin() + 1);
        datagram(bytes);
    }

    // The next datagram that passes the test; none in time.
    std::optional<Datagram> next_datagram(const std::function<bool(const Datagram&)>& wanted,
                                          Milliseconds timeout = patience) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < deadline) {
            std::optional<Datagram> datagram = main_application_.receive(Milliseconds{100});
            if (datagram && wanted(*datagram)) {
                return datagram;
            }
        }
        return std::nullopt;
    }

    // The next status line that holds all the pairs ("iso=400,"), as text without its first byte; empty in
    // time.
    std::string next_status(const std::vector<std::string>& pairs = {}, Milliseconds timeout = patience) {
        const auto wanted = [&](const Datagram& datagram) {
            const std::string text = datagram.text();
            return datagram.is_status_line() &&
                   std::all_of(pairs.begin(), pairs.end(),
                               [&](const std::string& pair) { return text.find(pair) != std::string::npos; });
        };
        const std::optional<Datagram> datagram = next_datagram(wanted, timeout);
        return datagram ? datagram->text().substr(1) : std::string{};
    }

    // ---- What it says, and its end ----

    // Waits until the text stands on its standard error stream at least so often.
    bool said(std::string_view text, int times = 1) { return board_.wait_for(text, patience, times); }

    // Waits for its end; the exit code, minus the signal number, or 1000 when it still runs.
    int end_code(Milliseconds timeout = patience) {
        const std::optional<sim::Ending> ending = board_.wait_for_end(timeout);
        return !ending ? 1000 : ending->by_signal ? -ending->code : ending->code;
    }

  private:
    // Sanitizers write to the service's standard error stream; some let it go on.
    void expect_no_sanitizer_report() const {
        EXPECT_THAT(board_.errors(), testing::Not(testing::HasSubstr("Sanitizer")));
    }

    ServiceSetup setup_;
    UdpSocket main_application_;
    BoardUnderTest board_;
    std::mutex sending_;
    std::atomic<bool> keeping_alive_{false};
    std::thread sender_;
    std::uint16_t command_port_ = 0;
};

}  // namespace blackbox
