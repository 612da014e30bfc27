#include "sim/board/service_run.h"

#include <fcntl.h>
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
#include <sstream>
#include <stdexcept>

#include "sim/board/file_contents.h"
#include "sim/board/loopback.h"
#include "sim/cable/owned.h"

namespace sim {
namespace {

[[noreturn]] void fail(const std::string& what, int error) {
    throw std::runtime_error("service run: " + what + ": " + std::strerror(error));
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
    result.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

// The caller's own environment behind the given variables, which come first where names are equal.
std::vector<std::string> complete_environment(std::vector<std::string> result) {
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

SharedMapping map(const FileDescriptor& fd, std::size_t size) {
    void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (address == MAP_FAILED) {
        fail("mmap", errno);
    }
    return {{static_cast<std::uint8_t*>(address), [size](std::uint8_t* mapped) { munmap(mapped, size); }},
            size};
}

}  // namespace

ServiceRun::ServiceRun(std::string run_directory, std::string shm_prefix, std::uint16_t notice_port)
    : run_directory_{std::move(run_directory)}, shm_prefix_{std::move(shm_prefix)} {
    notices_ = owned(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address = loopback(notice_port);
    socklen_t length = sizeof address;
    if (bind(notices_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(notices_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail("notice socket", errno);
    }
    notice_port_ = ntohs(address.sin_port);
}

ServiceRun::~ServiceRun() {
    end();
}

void ServiceRun::end() {
    kill();
    if (watcher_.joinable()) {
        watcher_.join();
    }
}

void ServiceRun::start_process(const ServiceOptions& service, const std::vector<std::string>& environment) {
    end();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        fail("pipe", errno);
    }
    errors_pipe_ = FileDescriptor{ends[0]};
    const FileDescriptor write_end{ends[1]};
    fcntl(ends[0], F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, service.error_stream.value_or(write_end.get()), STDERR_FILENO);
    for (int fd = STDIN_FILENO; service.error_stream == -1 && fd <= STDERR_FILENO; ++fd) {
        posix_spawn_file_actions_addclose(&actions, fd);
    }
    posix_spawn_file_actions_addchdir_np(&actions, service.working_directory.c_str());
    // A process group of its own, so that what it starts ends with it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);

    std::vector<std::string> arguments = service.arguments;
    arguments.insert(arguments.begin(), service.path);
    std::vector<std::string> variables = service.environment;
    variables.insert(variables.end(), environment.begin(), environment.end());
    variables = complete_environment(std::move(variables));
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
void ServiceRun::watch() {
    const FileDescriptor process =
        owned(static_cast<int>(syscall(SYS_pidfd_open, process_, 0)), "pidfd_open");
    for (bool running = true; running;) {
        pollfd entries[] = {{errors_pipe_.get(), POLLIN, 0}, {process.get(), POLLIN, 0}};
        poll(entries, 2, -1);
        running = entries[1].revents == 0;
        char buffer[4096];
        for (;;) {
            const ssize_t count = read(errors_pipe_.get(), buffer, sizeof buffer);
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

std::string ServiceRun::errors() const {
    const std::lock_guard lock{mutex_};
    return errors_;
}

bool ServiceRun::wait_for(std::string_view text, Milliseconds timeout, int times) const {
    std::unique_lock lock{mutex_};
    const auto said = [&] { return count_of(errors_, text) >= times; };
    changed_.wait_for(lock, timeout, [&] { return said() || ending_; });
    return said();
}

std::optional<Ending> ServiceRun::wait_for_end(Milliseconds timeout) const {
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, timeout, [&] { return ending_.has_value(); });
    return ending_;
}

void ServiceRun::kill() {
    const std::lock_guard lock{mutex_};
    if (process_ > 0) {
        ::kill(-process_, SIGKILL);
    }
}

double ServiceRun::cpu_seconds() const {
    {
        const std::lock_guard lock{mutex_};
        if (ending_) {
            return ending_->cpu_seconds;
        }
    }
    const std::optional<std::string> stat = file_contents("/proc/" + std::to_string(process_) + "/stat");
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

std::optional<std::string> ServiceRun::run_file(const std::string& name) const {
    return file_contents(run_directory_ + "/" + name);
}

std::string ServiceRun::shm_name(std::string_view name) const {
    if (name.starts_with('/')) {
        name.remove_prefix(1);
    }
    return "/" + shm_prefix_ + std::string{name};
}

std::optional<SharedMapping> ServiceRun::shared_memory(std::string_view name) const {
    const int fd = shm_open(shm_name(name).c_str(), O_RDWR, 0);
    struct stat status {};
    if (fd < 0) {
        return std::nullopt;
    }
    const FileDescriptor opened{fd};
    if (fstat(fd, &status) != 0 || status.st_size == 0) {
        return std::nullopt;
    }
    return map(opened, static_cast<std::size_t>(status.st_size));
}

SharedMapping ServiceRun::create_shared_memory(std::string_view name, std::size_t size) {
    const FileDescriptor fd = owned(shm_open(shm_name(name).c_str(), O_RDWR | O_CREAT, 0600), "shm_open");
    if (ftruncate(fd.get(), static_cast<off_t>(size)) != 0) {
        fail("ftruncate", errno);
    }
    return map(fd, size);
}

std::optional<std::string> ServiceRun::next_notice(Milliseconds timeout) {
    pollfd entry{notices_.get(), POLLIN, 0};
    char buffer[512];
    if (poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) {
        return std::nullopt;
    }
    const ssize_t count = recv(notices_.get(), buffer, sizeof buffer, 0);
    return count < 0 ? std::nullopt : std::optional{std::string(buffer, static_cast<std::size_t>(count))};
}

}  // namespace sim
