#include "sim/board/real_board.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "ardenvue.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

constexpr const char* run_directory = "/run/ardenvue";
constexpr const char* gadget_directory = "/dev/gadget";
constexpr const char* work_directory = "/tmp/ardenvue-work";

std::filesystem::path checked(const std::filesystem::path& port_switch) {
    if (port_switch.empty()) {
        throw std::runtime_error("real board: dummy_hcd is not loaded");
    }
    return port_switch;
}

// What was never there can't be taken away: results are ignored.
void clean() {
    for (const char* name : {ardenvue::frame_ring_name, ardenvue::transcoding_buffer_name,
                             ardenvue::camera_state_name, ardenvue::rc_raw_state_name}) {
        shm_unlink(name);
    }
    umount2(gadget_directory, 0);
    rmdir(gadget_directory);
    syscall(SYS_delete_module, "gadgetfs", O_NONBLOCK);
    std::error_code ignored;
    for (const char* directory : {run_directory, work_directory}) {
        fs::remove_all(directory, ignored);
        fs::create_directories(directory);
    }
}

// proc(5), /proc/net/tcp: local address in hexadecimal, remote address, state; 0A is listening.
bool is_listening(std::uint16_t port) {
    std::ifstream sockets{"/proc/net/tcp"};
    std::string line;
    std::getline(sockets, line);
    while (std::getline(sockets, line)) {
        std::istringstream fields{line};
        std::string slot;
        std::string local;
        std::string remote;
        std::string state;
        fields >> slot >> local >> remote >> state;
        if (state == "0A" && std::stoul(local.substr(local.find(':') + 1), nullptr, 16) == port) {
            return true;
        }
    }
    return false;
}

}  // namespace

RealBoard::RealBoard(const RealBoardOptions& options)
    : ServiceRun{run_directory, "", ardenvue::recording_notice_port}, cable_{checked(options.port_switch)} {
    clean();
}

RealBoard::~RealBoard() {
    end();
}

void RealBoard::start(const ServiceOptions& service) {
    ServiceOptions placed = service;
    if (placed.working_directory.empty()) {
        placed.working_directory = work_directory;
    }
    start_process(placed, {});
}

std::optional<std::uint16_t> RealBoard::relay_port(Milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
        if (is_listening(ardenvue::relay_port)) {
            return ardenvue::relay_port;
        }
    } while (!wait_for_end(Milliseconds{5}) && std::chrono::steady_clock::now() < deadline);
    return std::nullopt;
}

}  // namespace sim
