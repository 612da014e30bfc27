#include "sim/board.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sim {
namespace {

namespace fs = std::filesystem;
using Fd = std::shared_ptr<const int>;

[[noreturn]] void fail(const std::string& what, int error) {
    throw std::runtime_error("simulated board: " + what + ": " + std::strerror(error));
}

Fd own(int fd, const char* what) {
    if (fd < 0) {
        fail(what, errno);
    }
    return {new int{fd}, [](const int* owned) {
                close(*owned);
                delete owned;
            }};
}

std::string make_directory() {
    const char* place = std::getenv("TMPDIR");
    std::string path = std::string{place == nullptr ? "/tmp" : place} + "/ardenvue-board.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) {
        fail(path, errno);
    }
    for (const char* part : {"dev/gadget", "run", "faults", "work"}) {
        fs::create_directories(fs::path{path} / part);
    }
    return path;
}

std::optional<std::string> contents(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

int count_of(std::string_view text, std::string_view part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

SharedMapping map(const Fd& fd, std::size_t size) {
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, *fd, 0);
    if (address == MAP_FAILED) {
        fail("mmap", errno);
    }
    return {{static_cast<std::uint8_t*>(address), [size](std::uint8_t* mapped) { munmap(mapped, size); }},
            size};
}

}  // namespace

Board::Board(BoardOptions options) : options_{std::move(options)}, directory_{make_directory()} {
    if (options_.model) {
        // The device tree's texts end with their zero byte.
        std::ofstream{directory_ + "/model", std::ios::binary} << *options_.model << '\0';
    }
    notices_ = own(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(*notices_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(*notices_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail("notice socket", errno);
    }
    notice_port_ = ntohs(address.sin_port);
    cable_ = std::make_unique<BoardCable>(directory_, options_.controllers, options_.endpoints);
}

Board::~Board() {
    kill();
    if (watcher_.joinable()) {
        watcher_.join();
    }
    cable_.reset();
    std::error_code ignored;
    const std::string prefix = shm_name("").substr(1);
    for (const fs::directory_entry& entry : fs::directory_iterator{"/dev/shm", ignored}) {
        if (entry.path().filename().string().starts_with(prefix)) {
            fs::remove(entry.path(), ignored);
        }
    }
    fs::remove_all(directory_, ignored);
}

std::vector<std::string> Board::environment(const ServiceOptions& service) const {
    const int notice_port = options_.notice_port == 0 ? notice_port_ : options_.notice_port;
    std::vector<std::string> result = service.environment;
    result.push_back("LD_PRELOAD=" + options_.library);
    result.push_back("ARDENVUE_BOARD=" + directory_);
    result.push_back("ARDENVUE_BOARD_RELAY_PORT=" + std::to_string(options_.relay_port));
    result.push_back("ARDENVUE_BOARD_NOTICE_PORT=" + std::to_string(notice_port));
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text{*variable};
        const std::string_view name = text.substr(0, text.find('=') + 1);
        if (std::none_of(result.begin(), result.end(),
                         [&](const std::string& one) { return one.starts_with(name); })) {
            result.emplace_back(text);
        }
    }
    return result;
}

void Board::start(const ServiceOptions& service) {
    kill();
    if (watcher_.joinable()) {
        watcher_.join();
    }
    std::error_code ignored;
    fs::remove(directory_ + "/relay_port", ignored);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail("pipe", errno);
    }
    errors_pipe_ = own(ends[0], "pipe");
    const Fd write_end = own(ends[1], "pipe");
    fcntl(ends[0], F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, *write_end, STDERR_FILENO);
    const std::string place =
        service.working_directory.empty() ? directory_ + "/work" : service.working_directory;
    posix_spawn_file_actions_addchdir_np(&actions, place.c_str());
    // A process group of its own, so that what it starts ends with it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);

    std::vector<std::string> arguments = service.arguments;
    arguments.insert(arguments.begin(), service.path);
    std::vector<std::string> variables = environment(service);
    const int error = posix_spawn(&process_, service.path.c_str(), &actions, &attributes,
                                  pointers(arguments).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        process_ = -1;
        fail(service.path, error);
    }
    {
        const std::lock_guard lock{mutex_};
        errors_.clear();
        ending_.reset();
    }
    on_errors_ = service.on_errors;
    watcher_ = std::thread{[this] { watch(); }};
}

// Collects what the service says until it has ended. Processes that it left behind may hold the pipe open for
// longer.
void Board::watch() {
    const Fd process = own(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)), "pidfd_open");
    for (bool running = true; running;) {
        pollfd entries[] = {{*errors_pipe_, POLLIN, 0}, {*process, POLLIN, 0}};
        poll(entries, 2, -1);
        running = entries[1].revents == 0;
        char buffer[4096];
        for (;;) {
            const ssize_t count = read(*errors_pipe_, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            const std::string_view text{buffer, static_cast<std::size_t>(count)};
            if (on_errors_) {
                on_errors_(text);
            }
            const std::lock_guard lock{mutex_};
            errors_.append(text);
        }
        changed_.notify_all();
        if (running && (entries[0].revents & POLLHUP) != 0) {
            poll(entries + 1, 1, -1);  // it closed the stream itself
        }
    }
    int status = 0;
    rusage usage{};
    wait4(process_, &status, 0, &usage);
    const std::lock_guard lock{mutex_};
    const bool by_signal = WIFSIGNALED(status);
    ending_ = Ending{by_signal, by_signal ? WTERMSIG(status) : WEXITSTATUS(status),
                     seconds(usage.ru_utime) + seconds(usage.ru_stime)};
    changed_.notify_all();
}

std::string Board::errors() const {
    const std::lock_guard lock{mutex_};
    return errors_;
}

bool Board::wait_for(std::string_view text, Milliseconds timeout, int times) const {
    std::unique_lock lock{mutex_};
    const auto said = [&] { return count_of(errors_, text) >= times; };
    changed_.wait_for(lock, timeout, [&] { return said() || ending_; });
    return said();
}

std::optional<Ending> Board::wait_for_end(Milliseconds timeout) const {
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, timeout, [&] { return ending_.has_value(); });
    return ending_;
}

void Board::kill() {
    const std::lock_guard lock{mutex_};
    if (process_ > 0) {
        ::kill(-process_, SIGKILL);
    }
}

double Board::cpu_seconds() const {
    {
        const std::lock_guard lock{mutex_};
        if (ending_) {
            return ending_->cpu_seconds;
        }
    }
    const std::optional<std::string> stat = contents("/proc/" + std::to_string(process_) + "/stat");
    if (!stat) {
        return 0;
    }
    // proc(5): user and system time are fields 14 and 15; the second, in parentheses, may hold spaces.
    std::istringstream fields{stat->substr(stat->rfind(')') + 2)};
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    long user = 0;
    long system = 0;
    fields >> user >> system;
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::optional<std::string> Board::run_file(const std::string& name) const {
    return contents(directory_ + "/run/" + name);
}

std::string Board::shm_name(std::string_view name) const {
    if (name.starts_with('/')) {
        name.remove_prefix(1);
    }
    return "/" + fs::path{directory_}.filename().string() + "." + std::string{name};
}

std::optional<SharedMapping> Board::shared_memory(std::string_view name) const {
    const int fd = shm_open(shm_name(name).c_str(), O_RDWR, 0);
    struct stat status {};
    if (fd < 0) {
        return std::nullopt;
    }
    const Fd owned = own(fd, "shm_open");
    if (fstat(fd, &status) != 0 || status.st_size == 0) {
        return std::nullopt;
    }
    return map(owned, static_cast<std::size_t>(status.st_size));
}

SharedMapping Board::create_shared_memory(std::string_view name, std::size_t size) {
    const Fd fd = own(shm_open(shm_name(name).c_str(), O_RDWR | O_CREAT, 0600), "shm_open");
    if (ftruncate(*fd, static_cast<off_t>(size)) != 0) {
        fail("ftruncate", errno);
    }
    return map(fd, size);
}

std::optional<std::uint16_t> Board::relay_port(Milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    do {
        if (const std::optional<std::string> text = contents(directory_ + "/relay_port")) {
            return static_cast<std::uint16_t>(std::stoi(*text));
        }
    } while (!wait_for_end(Milliseconds{5}) && std::chrono::steady_clock::now() < deadline);
    return std::nullopt;
}

std::optional<std::string> Board::next_notice(Milliseconds timeout) {
    pollfd entry{*notices_, POLLIN, 0};
    char buffer[512];
    if (poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) {
        return std::nullopt;
    }
    const ssize_t count = recv(*notices_, buffer, sizeof buffer, 0);
    return count < 0 ? std::nullopt : std::optional{std::string(buffer, static_cast<std::size_t>(count))};
}

std::string Board::setup_commands() const {
    return contents(directory_ + "/setup.log").value_or("");
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
