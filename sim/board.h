// A simulated board: a directory with the files the service looks for, the service running on it through the
// board's preload library, and everything that can be seen of it from outside. Several boards run side by
// side. What they have in common with a real board, and what not, stands in docs/simulated-board.md.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "sim/board_cable.h"

namespace sim {

struct BoardOptions {
    std::string library;                                               // path of libardenvue-board.so
    std::optional<std::string> model = "Raspberry Pi Zero W Rev 1.1";  // none: there is no model file
    std::vector<std::string> controllers = {"20980000.usb"};
    std::vector<std::string> endpoints = {"ep1in",  "ep2in",  "ep3in",  "ep4in",  "ep5in",
                                          "ep6in",  "ep7in",  "ep1out", "ep2out", "ep3out",
                                          "ep4out", "ep5out", "ep6out", "ep7out"};
    int relay_port =
        0;  // bound instead of TCP port 6000; 0: the kernel chooses, see Board::relay_port; -1: 6000
    int notice_port =
        0;  // sent to instead of UDP port 5255; 0: the board's own, see Board::next_notice; -1: 5255
};

struct ServiceOptions {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;  // "NAME=value", over the caller's own
    std::string working_directory;         // empty: the board's directory "work"
    // Called with what the service writes to its standard error stream, on a thread of the board's own.
    std::function<void(std::string_view)> on_errors;
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

class Board {
  public:
    // Makes the directory; throws std::runtime_error when it can't.
    explicit Board(BoardOptions options);
    // Ends the service, removes the directory and the shared memory.
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // Starts the service, and may do so again after it ended. Throws std::runtime_error when it can't be
    // started.
    void start(const ServiceOptions& service);

    BoardCable& cable() { return *cable_; }
    const std::string& directory() const { return directory_; }
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

    // Contents of a file: of run/ (/run/ardenvue), by its name there. None when there is none.
    std::optional<std::string> run_file(const std::string& name) const;
    // Maps a shared-memory object by the name that the service knows it by. None when there is none yet.
    std::optional<SharedMapping> shared_memory(std::string_view name) const;
    // The name that other processes of the machine know such an object by, for shm_open.
    std::string shm_name(std::string_view name) const;
    // Creates one, as another process of the board would.
    SharedMapping create_shared_memory(std::string_view name, std::size_t size);
    // The port that stands for TCP 6000; none when the service does not listen in time.
    std::optional<std::uint16_t> relay_port(Milliseconds timeout) const;
    // The next datagram sent to 127.0.0.1 port 5255; none in time.
    std::optional<std::string> next_notice(Milliseconds timeout);
    // The set-up commands that it gave, one a line.
    std::string setup_commands() const;

    // ---- Failures on demand ----

    // Makes a call fail from now on, or work again; the names stand in docs/simulated-board.md.
    void set_fault(const std::string& name, bool fails = true);

  private:
    void watch();
    std::vector<std::string> environment(const ServiceOptions& service) const;

    BoardOptions options_;
    std::string directory_;
    std::shared_ptr<const int> notices_;
    std::uint16_t notice_port_ = 0;
    std::unique_ptr<BoardCable> cable_;
    pid_t process_ = -1;
    std::shared_ptr<const int> errors_pipe_;
    std::function<void(std::string_view)> on_errors_;
    std::thread watcher_;

    mutable std::mutex mutex_;  // guards what follows
    mutable std::condition_variable changed_;
    std::string errors_;
    std::optional<Ending> ending_;
};

}  // namespace sim
