// The service while it runs on a board, simulated or real: its start, what it says, how it ends, and what it
// leaves for other processes to see.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/file_descriptor.h"
#include "sim/cable/cable.h"

namespace sim {

struct ServiceOptions {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;  // "NAME=value", over the caller's own
    std::string working_directory;         // empty: the board's own
    // Called with what the service writes to its standard error stream, on a thread of the board's own.
    std::function<void(std::string_view)> on_errors = nullptr;
    // Its standard error stream instead of the pipe that errors() and on_errors read; -1: none of its three
    // standard descriptors is open.
    std::optional<int> error_stream = std::nullopt;
};

// How the service ended.
struct Ending {
    bool by_signal;
    int code;  // exit code, or signal number
    double cpu_seconds;
};

// A view of a shared-memory object, which other processes write at the same time.
struct SharedMapping {
    std::shared_ptr<std::uint8_t> data;
    std::size_t size;
};

class ServiceRun {
  public:
    ServiceRun(const ServiceRun&) = delete;
    ServiceRun& operator=(const ServiceRun&) = delete;

    pid_t process() const { return process_; }

    // ---- What the service says and how it ends ----

    // What it has written to its standard error stream since the last start.
    std::string errors() const;
    // Waits until that holds the text at least this often; false when the time is up, or the service ended
    // without.
    bool wait_for(std::string_view text, Milliseconds timeout, int times = 1) const;
    // None when it still runs after the time.
    std::optional<Ending> wait_for_end(Milliseconds timeout) const;
    // Ends it (SIGKILL), with all it started; nothing when it does not run.
    void kill();
    // Processor time that it has used so far.
    double cpu_seconds() const;

    // ---- What it leaves on the board ----

    // Contents of a file: of /run/ardenvue, by its name there. None when there is none.
    std::optional<std::string> run_file(const std::string& name) const;
    // Maps a shared-memory object by the name that the service knows it by. None when there is none yet.
    std::optional<SharedMapping> shared_memory(std::string_view name) const;
    // The name that other processes of the machine know such an object by, for shm_open.
    std::string shm_name(std::string_view name) const;
    // Creates one, as another process of the board would.
    SharedMapping create_shared_memory(std::string_view name, std::size_t size);
    // The next datagram sent to 127.0.0.1 port 5255; none in time.
    std::optional<std::string> next_notice(Milliseconds timeout);

  protected:
    // Where the board keeps /run/ardenvue, what stands before the names of its shared memory, and the port
    // that stands for 5255 (0: the kernel chooses). Throws std::runtime_error when the port is taken.
    ServiceRun(std::string run_directory, std::string shm_prefix, std::uint16_t notice_port);
    // Ends the service.
    ~ServiceRun();

    // Starts the service, also again after it ended, with environment besides its options' own. Throws
    // std::runtime_error when it can't be started.
    void start_process(const ServiceOptions& service, const std::vector<std::string>& environment);
    // Ends the service and waits until it is gone.
    void end();

    std::uint16_t notice_port() const { return notice_port_; }

  private:
    void watch();

    const std::string run_directory_;
    const std::string shm_prefix_;
    FileDescriptor notices_;
    std::uint16_t notice_port_ = 0;
    pid_t process_ = -1;
    FileDescriptor errors_pipe_;
    std::function<void(std::string_view)> on_errors_;
    std::thread watcher_;

    mutable std::mutex mutex_;  // guards what follows
    mutable std::condition_variable changed_;
    std::string errors_;
    std::optional<Ending> ending_;
};

}  // namespace sim
