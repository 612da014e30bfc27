// Where a process has bound a UDP socket, from the kernel's tables (proc(5)).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace blackbox {

// The inodes of a process's sockets.
inline std::set<std::string> socket_inodes(const std::string& process) {
    namespace fs = std::filesystem;
    std::set<std::string> inodes;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator{"/proc/" + process + "/fd", error}) {
        const std::string target = fs::read_symlink(entry.path(), error).string();
        if (target.starts_with("socket:[")) {
            inodes.insert(target.substr(8, target.size() - 9));
        }
    }
    return inodes;
}

// A port that one of the process's own UDP sockets is bound to; 0 when there is none (yet). A process that
// was just started may still hold those of the process that started it.
inline std::uint16_t bound_udp_port(pid_t process) {
    std::set<std::string> inodes = socket_inodes(std::to_string(process));
    for (const std::string& inherited : socket_inodes("self")) {
        inodes.erase(inherited);
    }
    std::ifstream table{"/proc/" + std::to_string(process) + "/net/udp"};
    std::string line;
    std::getline(table, line);  // the headings
    while (std::getline(table, line)) {
        std::istringstream fields{line};
        std::string slot, local, remote, state, queues, timer, retransmits, user, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> user >> timeout >>
            inode;
        if (inodes.contains(inode)) {
            return static_cast<std::uint16_t>(std::stoul(local.substr(local.find(':') + 1), nullptr, 16));
        }
    }
    return 0;
}

}  // namespace blackbox
