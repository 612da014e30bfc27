// A simulated board: a directory with the files the service looks for, the service running on it through the
// board's preload library, and everything that can be seen of it from outside. Several boards run side by
// side. What they have in common with a real board, and what not, stands in docs/simulated-board.md.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/board/service_run.h"
#include "sim/cable/board_cable.h"

namespace sim {

struct BoardOptions {
    std::string library;                                               // path of libardenvue-board.so
    std::optional<std::string> model = "Raspberry Pi Zero W Rev 1.1";  // none: there is no model file
    std::vector<std::string> controllers = {"20980000.usb"};
    std::vector<std::string> endpoints = {"ep1in",  "ep2in",  "ep3in",  "ep4in",  "ep5in",
                                          "ep6in",  "ep7in",  "ep1out", "ep2out", "ep3out",
                                          "ep4out", "ep5out", "ep6out", "ep7out"};
    // Bound instead of TCP port 6000; 0: the kernel chooses, see Board::relay_port; -1: 6000.
    int relay_port = 0;
    // Sent to instead of UDP port 5255; 0: the board's own, see Board::next_notice; -1: 5255.
    int notice_port = 0;
};

class Board : public ServiceRun {
  public:
    // Makes the directory; throws std::runtime_error when it can't.
    explicit Board(BoardOptions options);
    // Ends the service, removes the directory and the shared memory.
    ~Board();
    // Starts the service, and may do so again after it ended. Throws std::runtime_error when it can't be
    // started.
    void start(const ServiceOptions& service);

    BoardCable& cable() { return *cable_; }
    const std::string& directory() const { return directory_; }

    // The port that stands for TCP 6000; none when the service does not listen in time.
    std::optional<std::uint16_t> relay_port(Milliseconds timeout) const;
    // The set-up commands that it gave, one a line.
    std::string setup_commands() const;

    // ---- Failures on demand ----

    // Makes a call fail from now on, or work again; the names stand in docs/simulated-board.md.
    void set_fault(const std::string& name, bool fails = true);

  private:
    Board(BoardOptions options, std::string directory);

    BoardOptions options_;
    std::string directory_;
    std::unique_ptr<BoardCable> cable_;
};

}  // namespace sim
