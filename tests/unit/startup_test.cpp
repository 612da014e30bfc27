#include <getopt.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "startup/board.h"
#include "startup/options.h"
#include "startup/supervision.h"

namespace {
using Arguments = std::vector<std::string>;

constexpr const char* usage =
    "DJI Phantom 4 receiver\nUsage:\n-d | --dst-host=<destination_host>\n-s | --dst-port=<destination_port>\n"
    "-v | --verbose\n-? | --help - show this help\n";

// Parses a command line as the first one of a process would be; what it prints goes to output.
int parse(Arguments arguments, std::string& output) {
    arguments.insert(arguments.begin(), "ardenvue");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    options() = Options{};
    optind = 0;
    testing::internal::CaptureStderr();
    const int result = parse_options(argc, argv.data());
    output = testing::internal::GetCapturedStderr();
    return result;
}

TEST(Options, AcceptedCommandLines) {
    const struct {
        Arguments arguments;
        const char* host;
        int port;
        int verbose;
    } cases[] = {
        {{}, "127.0.0.1", 5000, 0},
        {{"-d", "10.1.2.3", "-s", "6001", "-v"}, "10.1.2.3", 6001, 1},
        {{"--dst-host=255.255.255.255", "--dst-port", "65535", "--verbose"}, "255.255.255.255", 65535, 1},
        {{"-d10.0.0.1", "-s5", "-d1.2.3.4", "-s1"}, "1.2.3.4", 1, 0},  // the last one counts
        {{"-s", "5000x"}, "127.0.0.1", 5000, 0},
        {{"-s", "  +80"}, "127.0.0.1", 80, 0},
        {{"flight", "-v", "7"}, "127.0.0.1", 5000, 1},
        {{"--", "-s", "1"}, "127.0.0.1", 5000, 0},
        {{"-s", "0"}, "127.0.0.1", 0, 0},  // refused by start-up, in its own words
        {{"-s", "abc"}, "127.0.0.1", 0, 0},
        {{"-s", "x5000"}, "127.0.0.1", 0, 0},
        {{"--dst-port="}, "127.0.0.1", 0, 0},
    };
    for (const auto& [arguments, host, port, verbose] : cases) {
        std::string output;
        EXPECT_EQ(parse(arguments, output), 0) << testing::PrintToString(arguments);
        EXPECT_STREQ(options().dst_host, host);
        EXPECT_EQ(options().dst_port, port) << testing::PrintToString(arguments);
        EXPECT_EQ(options().verbose, verbose);
        EXPECT_EQ(output, "");
    }
}

TEST(Options, RefusedCommandLinesEndWithTheUsageText) {
    const struct {
        Arguments arguments;
        std::string fault;  // the line before the usage text
    } cases[] = {
        {{"-?"}, ""},
        {{"--help"}, ""},
        {{"-v", "--help", "-s", "0"}, ""},
        {{"-x"}, "ardenvue: invalid option -- 'x'\n"},
        {{"-d"}, "ardenvue: option requires an argument -- 'd'\n"},
        {{"-d", "localhost"}, "Destination host is not an IPv4 address: localhost\n"},
        {{"-d", ""}, "Destination host is not an IPv4 address: \n"},
        {{"-d", "127.1"}, "Destination host is not an IPv4 address: 127.1\n"},
        {{"-d", "10.0.0.256"}, "Destination host is not an IPv4 address: 10.0.0.256\n"},
        {{"-d", "10.0.0.1 "}, "Destination host is not an IPv4 address: 10.0.0.1 \n"},
        {{"-d", "::1"}, "Destination host is not an IPv4 address: ::1\n"},
        {{"--dst-host=127.000.000.00000001"},
         "Destination host is not an IPv4 address: 127.000.000.00000001\n"},
        {{"-s", "65536"}, "Destination port is not a UDP port: 65536\n"},
        {{"-s", "-1"}, "Destination port is not a UDP port: -1\n"},
        {{"-s", "4294967297"}, "Destination port is not a UDP port: 4294967297\n"},
        {{"-s", "99999999999999999999"}, "Destination port is not a UDP port: 99999999999999999999\n"},
    };
    for (const auto& [arguments, fault] : cases) {
        std::string output;
        EXPECT_EQ(parse(arguments, output), 1) << testing::PrintToString(arguments);
        EXPECT_EQ(output, fault + usage);
    }
}

TEST(Board, ModelsThatAreSupported) {
    const struct {
        const char* model;
        bool supported;
    } cases[] = {
        {"Raspberry Pi 4 Model B Rev 1.4", true},
        {"Raspberry Pi 3 Model A Plus Rev 1.0", true},
        {"Raspberry Pi Zero W Rev 1.1", true},
        {"A Raspberry Pi Zero WH", true},
        {"Raspberry Pi 3 Model B Rev 1.2", false},
        {"Raspberry Pi Zero 2 W Rev 1.0", false},
        {"Raspberry Pi 4 Model", false},
        {"raspberry pi 4 model b", false},
        {"", false},
    };
    for (const auto& [model, supported] : cases) {
        EXPECT_EQ(is_board_supported(model), supported) << model;
    }
}

TEST(Watchdog, VerdictsAtTheirEdges) {
    const struct {
        std::int32_t silence_ms;
        bool is_late;
        bool is_expired;
    } cases[] = {
        {-2'000'000'000, false, false},  // the wall clock was set back
        {0, false, false},
        {1000, false, false},
        {1001, true, false},
        {5000, true, false},
        {5001, true, true},
        {2'000'000'000, true, true},
    };
    for (const auto& [silence_ms, is_late, is_expired] : cases) {
        const WatchdogVerdict verdict = watchdog_verdict(silence_ms);
        EXPECT_EQ(verdict.is_late, is_late) << silence_ms;
        EXPECT_EQ(verdict.is_expired, is_expired) << silence_ms;
    }
}
}  // namespace
