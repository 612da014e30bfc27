// ardenvue-sim, the remote controller for desks and tests.
#include <cstdio>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "formats/command_line.h"
#include "formats/stop_signals.h"
#include "sim/run_command.h"

namespace {

namespace fs = std::filesystem;

std::atomic<bool> stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "it is set by a signal handler");

// The first of these places, relative to this executable, where there is such a file; empty when there is
// none.
std::string find_beside(std::initializer_list<const char*> places) {
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* place : places) {
        const fs::path path = (here / place).lexically_normal();
        if (fs::exists(path, error)) {
            return path;
        }
    }
    return {};
}

void add_run(CLI::App& app, sim::RunOptions& options, double& seconds) {
    CLI::App* const run =
        app.add_subcommand("run", "Start the service on a simulated board and stream to it");
    run->description(
        "Starts the service on a fresh simulated board, is plugged in as the remote controller, and streams "
        "until\n"
        "SIGINT, SIGTERM or SIGHUP: video and the pushes of a camera that acts on the commands it gets. The "
        "service's\n"
        "diagnostics go to the standard error stream. The service and the board are gone afterwards.");
    run->footer(
        "Faults (--fault, may be repeated):\n"
        "  garbage[:BYTES]           bytes that mean nothing (100, at most 480) before every tenth frame\n"
        "  corrupt                   about every other push has a bit turned over\n"
        "  unplug@SECOND[:SECONDS]   the cable is pulled, for a second or as given, and plugged in again\n"
        "  silence@SECOND[:SECONDS]  nothing is sent, for 2 seconds or as given; after more than 5 the "
        "service\n"
        "                            gives up\n"
        "  full-speed                the host never leaves full speed, which the service can't use\n"
        "Where a fault ends the service, it is checked that it ends as it must, and it is started again, as "
        "its\n"
        "supervisor would (not after full-speed).\n\n"
        "Exit codes: 0 all was well: the device told the host what it must, the service lived as long as it "
        "must,\n"
        "and the camera understood every packet; 1 it was not; 2 the run could not begin; 64 wrong options.");
    sim::SessionOptions& session = options.session;
    run->add_option("--clip", session.clip, "Raw H.264 clip (byte stream) to stream in a loop")
        ->check(CLI::ExistingFile)
        ->capture_default_str();
    run->add_option("--fps", session.frames_per_second, "Pictures a second of the clip")
        ->check(CLI::Range(0.1, 1000.0))
        ->capture_default_str();
    run->add_flag_callback(
           "--no-video", [&session] { session.clip.clear(); }, "Send pushes only")
        ->excludes("--clip");
    run->add_option("--replay", session.replay,
                    "Play this recording (ardenvue-ctl capture, or a raw stream) once, instead")
        ->check(CLI::ExistingFile)
        ->excludes("--clip");
    run->add_flag("--flat-out", session.flat_out, "Send the video, or the recording, as fast as it is taken");
    run->add_option("--seconds", seconds, "Stop after so many seconds of streaming")
        ->check(formats::above_zero());
    run->add_option_function<std::vector<std::string>>(
           "--fault",
           [&session](const std::vector<std::string>& faults) {
               for (const std::string& fault : faults) {
                   if (const std::string wrong = sim::add_fault(fault, session.faults); !wrong.empty()) {
                       throw CLI::ValidationError("--fault", wrong);
                   }
               }
           },
           "Make trouble; see below")
        ->type_name("FAULT")
        ->allow_extra_args(false);
    run->add_option("--log", session.log,
                    "Write every link packet into this file: time, direction, bytes, meaning");
    run->add_option(
           "--video-times", session.times,
           "Write the number of each picture of the clip, and the time of CLOCK_MONOTONIC at which it\n"
           "went onto the cable, into this file")
        ->excludes("--replay");
    run->add_option("--report", session.report,
                    "Write what was sent and received into this file, as NAME=VALUE");
    run->add_option(
        "--board-dir", options.board_dir,
        "Write the file \"env\" there: ports, shared-memory names and directory of this board, for\n"
        "ardenvue-ctl --board");
    run->add_flag("--fixed-ports", options.fixed_ports,
                  "Use the service's own ports, 6000 and 5255, instead of free ones");
    run->add_option("--service", options.service, "The service's executable")->capture_default_str();
    run->add_option("--board-library", options.board_library, "libardenvue-board.so")->capture_default_str();
    run->add_option("ARGS", options.arguments, "Arguments of the service, after --");
}

}  // namespace

int main(int argc, char** argv) try {
    sim::RunOptions options;
    options.service = find_beside({"ardenvue", "../ardenvue", "../sbin/ardenvue"});
    options.board_library = find_beside({"libardenvue-board.so", "../libardenvue-board.so",
                                         "../" ARDENVUE_LIBDIR "/ardenvue/libardenvue-board.so"});
    options.session.clip = find_beside({"clips/1280x720.h264", "../share/ardenvue/clips/1280x720.h264"});
    double seconds = 0;

    CLI::App app{"The remote controller that Ardenvue is plugged into, simulated."};
    app.require_subcommand(1);
    app.set_version_flag("--version", "ardenvue-sim " ARDENVUE_VERSION, "Print the version and end");
    add_run(app, options, seconds);
    if (const int wrong = formats::parse_command_line(app, argc, argv); wrong >= 0) {
        return wrong;
    }
    if (seconds > 0) {
        options.session.length =
            std::chrono::duration_cast<sim::Time>(std::chrono::duration<double>(seconds));
    }
    formats::on_stop_signals([](int) { stop = true; });  // nothing of the board may be left then
    return sim::run(options, stop);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "ardenvue-sim: %s\n", failure.what());
    return 2;
}
