#include "startup/options.h"

#include <arpa/inet.h>
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {
Options the_options;

constexpr option long_options[] = {
    {"dst-host", required_argument, nullptr, 'd'},
    {"dst-port", required_argument, nullptr, 's'},
    {"help", no_argument, nullptr, '?'},
    {"verbose", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

int refuse(const char* fault, const char* argument) {
    std::fprintf(stderr, "Destination %s: %s\n", fault, argument);
    print_usage();
    return 1;
}

// Four decimal numbers and nothing else: other forms that some functions take ("127.1", "010.0.0.1", "1")
// mean an address that the text does not show, and there is no name lookup. Such a text always fits the
// field.
bool is_dotted_address(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

// The leading digits; 0 without any, the nearest end of the range when they say more.
std::int32_t read_port(const char* text) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp<long>(std::strtol(text, nullptr, 10), Limits::min(), Limits::max()));
}
}  // namespace

Options& options() {
    return the_options;
}

int parse_options(int argc, char* argv[]) {
    for (;;) {
        switch (getopt_long(argc, argv, "d:s:v?", long_options, nullptr)) {
            case 'd':
                if (!is_dotted_address(optarg)) {
                    return refuse("host is not an IPv4 address", optarg);
                }
                std::strncpy(the_options.dst_host, optarg, sizeof the_options.dst_host - 1);
                break;
            case 's':
                the_options.dst_port = read_port(optarg);
                if (the_options.dst_port < 0 || the_options.dst_port > 65'535) {
                    return refuse("port is not a UDP port", optarg);
                }
                break;
            case 'v':
                the_options.verbose = 1;
                break;
            case '?':
                print_usage();
                return 1;
            case -1:
                return 0;
            default:
                break;
        }
    }
}

void print_usage() {
    std::fputs(
        "DJI Phantom 4 receiver\n"
        "Usage:\n"
        "-d | --dst-host=<destination_host>\n"
        "-s | --dst-port=<destination_port>\n"
        "-v | --verbose\n"
        "-? | --help - show this help\n",
        stderr);
}
