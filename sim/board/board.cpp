#include "sim/board/board.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "sim/board/file_contents.h"

namespace sim {
namespace {

namespace fs = std::filesystem;

std::string make_directory() {
    const char* place = std::getenv("TMPDIR");
    std::string path = std::string{place == nullptr ? "/tmp" : place} + "/ardenvue-board.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("simulated board: " + path + ": " + std::strerror(errno));
    }
    for (const char* part : {"dev/gadget", "run", "faults", "cwd"}) {
        fs::create_directories(fs::path{path} / part);
    }
    return path;
}

std::string shm_prefix(const std::string& directory) {
    return fs::path{directory}.filename().string() + ".";
}

}  // namespace

Board::Board(BoardOptions options) : Board{std::move(options), make_directory()} {}

Board::Board(BoardOptions options, std::string directory)
    : ServiceRun{directory + "/run", shm_prefix(directory), 0},
      options_{std::move(options)},
      directory_{std::move(directory)} {
    if (options_.model) {
        // The device tree's texts end with their zero byte.
        std::ofstream{directory_ + "/model", std::ios::binary} << *options_.model << '\0';
    }
    cable_ = std::make_unique<BoardCable>(directory_, options_.controllers, options_.endpoints);
}

Board::~Board() {
    end();
    cable_.reset();
    std::error_code ignored;
    const std::string prefix = shm_prefix(directory_);
    for (const fs::directory_entry& entry : fs::directory_iterator{"/dev/shm", ignored}) {
        if (entry.path().filename().string().starts_with(prefix)) {
            fs::remove(entry.path(), ignored);
        }
    }
    fs::remove_all(directory_, ignored);
}

void Board::start(const ServiceOptions& service) {
    end();
    if (!cable_->wait_until_closed(Milliseconds{20'000})) {
        throw std::runtime_error("simulated board: an ended service holds its gadget files");
    }
    std::error_code ignored;
    fs::remove(directory_ + "/relay_port", ignored);
    const int notices = options_.notice_port == 0 ? notice_port() : options_.notice_port;
    ServiceOptions placed = service;
    if (placed.working_directory.empty()) {
        placed.working_directory = directory_ + "/cwd";
    }
    start_process(placed, {"LD_PRELOAD=" + options_.library, "ARDENVUE_BOARD=" + directory_,
                           "ARDENVUE_BOARD_RELAY_PORT=" + std::to_string(options_.relay_port),
                           "ARDENVUE_BOARD_NOTICE_PORT=" + std::to_string(notices)});
}

std::optional<std::uint16_t> Board::relay_port(Milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
        if (const std::optional<std::string> text = file_contents(directory_ + "/relay_port")) {
            return static_cast<std::uint16_t>(std::stoi(*text));
        }
    } while (!wait_for_end(Milliseconds{5}) && std::chrono::steady_clock::now() < deadline);
    return std::nullopt;
}

std::string Board::setup_commands() const {
    return file_contents(directory_ + "/setup.log").value_or("");
}

void Board::set_fault(const std::string& name, bool fails) {
    const std::string path = directory_ + "/faults/" + name;
    if (fails) {
        std::ofstream{path} << "";
    } else {
        fs::remove(path);
    }
}

}  // namespace sim
