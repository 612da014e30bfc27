#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "client/link.h"

namespace client {
namespace {

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
    void operator()(DIR* folder) const { closedir(folder); }
};
using File = std::unique_ptr<std::FILE, Closer>;
using Folder = std::unique_ptr<DIR, Closer>;

// The inode of the socket bound to the port, from /proc/net/udp (proc(5)); empty when there is none.
std::string inode_of_udp_port(std::uint16_t port) {
    const File table{std::fopen("/proc/net/udp", "re")};
    char line[512];
    while (table && std::fgets(line, sizeof line, table.get()) != nullptr) {
        unsigned bound = 0;
        unsigned long inode = 0;
        // sl, local address and port, remote address, state, queues, timer, retransmits, uid, timeout, inode
        if (std::sscanf(line, " %*s %*[0-9A-F]:%x %*s %*s %*s %*s %*s %*s %*s %lu", &bound, &inode) == 2 &&
            bound == port) {
            return std::to_string(inode);
        }
    }
    return {};
}

bool holds(const std::string& process, std::string_view socket_name) {
    const Folder folder{opendir((process + "/fd").c_str())};
    while (const dirent* fd = folder ? readdir(folder.get()) : nullptr) {
        std::array<char, 64> target{};
        const ssize_t size = readlink((process + "/fd/" + fd->d_name).c_str(), target.data(), target.size());
        if (size > 0 && std::string_view{target.data(), static_cast<std::size_t>(size)} == socket_name) {
            return true;
        }
    }
    return false;
}

std::string name_of(const std::string& process) {
    const File comm{std::fopen((process + "/comm").c_str(), "re")};
    char name[64] = "";
    if (comm && std::fgets(name, sizeof name, comm.get()) != nullptr) {
        name[std::string_view{name}.find_last_not_of('\n') + 1] = '\0';
    }
    return name;
}

}  // namespace

std::string holder_of_udp_port(std::uint16_t port) {
    const std::string inode = inode_of_udp_port(port);
    const Folder proc{opendir("/proc")};
    while (const dirent* entry = proc && !inode.empty() ? readdir(proc.get()) : nullptr) {
        const std::string pid{entry->d_name};
        const std::string process = "/proc/" + pid;
        if (pid.find_first_not_of("0123456789") == std::string::npos &&
            holds(process, "socket:[" + inode + "]")) {
            return name_of(process) + " (pid " + pid + ")";
        }
    }
    return {};
}

}  // namespace client
