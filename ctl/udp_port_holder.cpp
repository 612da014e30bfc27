#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "ctl/service_link.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;

// The inode of the socket bound to the port, from /proc/net/udp (proc(5)); empty when there is none.
std::string inode_of_udp_port(std::uint16_t port) {
    std::ifstream table{"/proc/net/udp"};
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        unsigned bound = 0;
        unsigned long inode = 0;
        // sl, local address and port, remote address, state, queues, timer, retransmits, uid, timeout, inode
        if (std::sscanf(line.c_str(), " %*s %*[0-9A-F]:%x %*s %*s %*s %*s %*s %*s %*s %lu", &bound, &inode) ==
                2 &&
            bound == port) {
            return std::to_string(inode);
        }
    }
    return {};
}

bool holds(const fs::path& process, const std::string& socket_name) {
    std::error_code ignored;
    for (fs::directory_iterator fd{process / "fd", ignored}; fd != fs::directory_iterator{};
         fd.increment(ignored)) {
        if (fs::read_symlink(fd->path(), ignored) == socket_name) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string holder_of_udp_port(std::uint16_t port) {
    const std::string inode = inode_of_udp_port(port);
    if (inode.empty()) {
        return {};
    }
    std::error_code ignored;
    for (fs::directory_iterator entry{"/proc", ignored}; entry != fs::directory_iterator{};
         entry.increment(ignored)) {
        const std::string pid = entry->path().filename();
        if (pid.find_first_not_of("0123456789") == std::string::npos &&
            holds(entry->path(), "socket:[" + inode + "]")) {
            std::string name;
            std::getline(std::ifstream{entry->path() / "comm"}, name);
            return name.append(" (pid ").append(pid).append(")");
        }
    }
    return {};
}

}  // namespace ctl
