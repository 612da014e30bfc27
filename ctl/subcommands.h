// The subcommands: options filled in by the command line, and the run of each, which returns an exit code.
#pragma once

#include <string>
#include <vector>

#include "ctl/board_options.h"

namespace ctl {

struct StatusOptions {
    bool json = false;
    bool watch = false;
    double timeout = 5;  // seconds until the first line
};
int run_status(const BoardOptions& board, const StatusOptions& options);

struct SendOptions {
    std::vector<std::string> words;
    std::string raw;
    std::string to;      // "HOST:PORT" of the command port, when it is known already
    std::string wait;    // seconds until the state must show it, a number above 0; empty: don't wait
    bool yes = false;    // don't ask before what can't be undone
    double timeout = 5;  // seconds until the first status line
};
int run_send(const BoardOptions& board, const SendOptions& options);

struct VideoOptions {
    std::string output = "-";
    std::string format = "h264";  // or "mp4", "ts"
    std::uint64_t frames = 0;     // 0: no limit
    double seconds = 0;           // 0: no limit
};
int run_video(const BoardOptions& board, const VideoOptions& options);

struct SnapshotOptions {
    std::string file;
    double timeout = 5;  // seconds until a picture that a decoder can begin with
};
int run_snapshot(const BoardOptions& board, const SnapshotOptions& options);

struct RecordOptions {
    std::string file;
    double seconds = 0;      // 0: until stopped
    double split = 0;        // minutes, 0: one file
    double keep_free = 100;  // megabytes of the disk
    bool with_state = true;
};
int run_record(const BoardOptions& board, const RecordOptions& options);

struct CaptureOptions {
    std::string file;
    double seconds = 0;  // 0: until stopped
    double timeout = 5;  // seconds until the first bytes
};
int run_capture(const BoardOptions& board, const CaptureOptions& options);

struct DecodeOptions {
    std::string file;
    std::string video;    // file to write; empty: none
    std::string packets;  // the same
};
int run_decode(const DecodeOptions& options);

struct InjectOptions {
    std::string file;
    double timeout = 5;  // seconds until the link streams
};
int run_inject(const BoardOptions& board, const InjectOptions& options);

struct MonitorOptions {
    bool lines = false;
    double seconds = 0;  // 0: until stopped, or until the script is done
    std::string play;
    std::string report;
    double wait = 10;  // seconds until the state must show a command of the script
};
int run_monitor(const BoardOptions& board, const MonitorOptions& options);

struct AccountOptions {
    std::string sent;          // report of the simulator
    std::string seen;          // report of a monitor that saw all of it
    std::string picture_size;  // of the clip, "1920x1080"; empty: not compared
};
int run_account(const AccountOptions& options);

}  // namespace ctl
