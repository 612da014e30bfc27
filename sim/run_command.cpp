#include "sim/run_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "ardenvue.h"
#include "sim/board/board.h"

namespace sim {
namespace {

constexpr Milliseconds time_to_listen{20'000};

// What other programs need to find this board, under a name of its own until it is complete.
void write_environment(const Board& board, const RunOptions& options, std::uint16_t relay_port) {
    const std::filesystem::path directory{options.board_dir};
    std::filesystem::create_directories(directory);
    const std::filesystem::path unfinished = directory / ".env";
    std::ofstream file{unfinished};
    file << "STATUS_PORT=" << status_port(options.arguments) << '\n'
         << "RELAY_PORT=" << relay_port << '\n'
         << "FRAME_RING=" << board.shm_name(ardenvue::frame_ring_name) << '\n'
         << "CAMERA_STATE=" << board.shm_name(ardenvue::camera_state_name) << '\n'
         << "RC_RAW_STATE=" << board.shm_name(ardenvue::rc_raw_state_name) << '\n'
         << "RUN_DIR=" << board.directory() << "/run\n"
         << "SERVICE_PID=" << board.process() << '\n';
    file.close();
    if (!file) {
        throw std::runtime_error(unfinished.string() + " can't be written");
    }
    std::filesystem::rename(unfinished, directory / "env");
}

void start(Board& board, const RunOptions& options) {
    ServiceOptions service;
    service.path = options.service;
    service.arguments = options.arguments;
    service.on_errors = [](std::string_view text) { std::fwrite(text.data(), 1, text.size(), stderr); };
    board.start(service);
    const auto relay_port = board.relay_port(time_to_listen);
    if (relay_port && !options.board_dir.empty()) {
        write_environment(board, options, *relay_port);
    }
}

std::optional<int> wait_for_end(const Board& board, Milliseconds timeout) {
    const auto ending = board.wait_for_end(timeout);
    if (!ending) {
        return std::nullopt;
    }
    return ending->by_signal ? 128 + ending->code : ending->code;
}

}  // namespace

std::string status_port(const std::vector<std::string>& arguments) {
    std::string port = std::to_string(ardenvue::default_status_port);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if ((argument == "-s" || argument == "--dst-port") && i + 1 < arguments.size()) {
            port = arguments[++i];
        } else if (argument.starts_with("--dst-port=")) {
            port = argument.substr(std::strlen("--dst-port="));
        } else if (argument.starts_with("-s") && argument.size() > 2) {
            port = argument.substr(2);
        }
    }
    return port;
}

int run(const RunOptions& options, const std::atomic<bool>& stop) try {
    BoardOptions board_options;
    board_options.library = options.board_library;
    if (options.fixed_ports) {
        board_options.relay_port = -1;
        board_options.notice_port = -1;
    }
    Board board{board_options};
    Session session{
        board.cable(),
        {[&] { start(board, options); }, [&](Milliseconds timeout) { return wait_for_end(board, timeout); },
         [&] { return board.cpu_seconds(); }},
        options.session};
    const std::string obstacle = session.prepare();
    if (!obstacle.empty()) {
        std::fprintf(stderr, "ardenvue-sim: %s\n", obstacle.c_str());
        return 2;
    }
    const bool well = session.run(stop);
    session.print_summary();
    if (!options.session.report.empty() && !session.write_report()) {
        std::fprintf(stderr, "ardenvue-sim: %s: %s\n", options.session.report.c_str(), std::strerror(errno));
        return 1;
    }
    return well ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "ardenvue-sim: %s\n", failure.what());
    return 2;
}

}  // namespace sim
