#include "ctl/tcp_port.h"

#include <cstdio>
#include <fstream>
#include <string>

namespace ctl {

bool is_tcp_port_listening(std::uint16_t port) {
    constexpr unsigned listening = 0x0A;
    std::ifstream table{"/proc/net/tcp"};
    for (std::string line; std::getline(table, line);) {
        unsigned bound = 0;
        unsigned state = 0;
        // sl, local address and port, remote address and port, state
        if (std::sscanf(line.c_str(), " %*s %*[0-9A-F]:%x %*s %x", &bound, &state) == 2 && bound == port &&
            state == listening) {
            return true;
        }
    }
    return false;
}

}  // namespace ctl
