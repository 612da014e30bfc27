// ardenvue-ctl: sees and uses a running service, as a main application does.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "ardenvue/client.h"
#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "formats/command_line.h"

namespace {

using namespace ctl;

void add_monitor(CLI::App& app, const BoardOptions& board, MonitorOptions& options, int& code) {
    CLI::App* monitor =
        app.add_subcommand("monitor", "Show everything, live; q quits. Without a terminal: a line a second");
    monitor->add_flag("--lines", options.lines, "print lines on a terminal too");
    monitor->add_option("--seconds", options.seconds, "end after this time")->check(formats::above_zero());
    monitor
        ->add_option("--play", options.play,
                     "a script of commands, one a line, and of \"wait SECONDS\"; ends after it")
        ->check(CLI::ExistingFile);
    monitor->add_option("--report", options.report, "write what was played and seen into this file, as JSON");
    monitor
        ->add_option("--wait", options.wait, "seconds in which the state must show a command of the script")
        ->check(formats::above_zero())
        ->capture_default_str();
    monitor->callback([&] { code = run_monitor(board, options); });
}

void add_status(CLI::App& app, const BoardOptions& board, StatusOptions& options, int& code) {
    CLI::App* status = app.add_subcommand("status", "Print the next status line as a table");
    status->add_flag("--json", options.json, "as a JSON object instead, with all that is known");
    status->add_flag("--watch", options.watch,
                     "go on, one a second; with --json also when the link has changed");
    status->add_option("--timeout", options.timeout, "seconds to wait for a line")
        ->check(formats::above_zero())
        ->capture_default_str();
    status->callback([&] { code = run_status(board, options); });
}

std::string command_overview() {
    std::string text(static_cast<std::size_t>(std::max(0, ardenvue_command_overview(nullptr, 0))), '\0');
    ardenvue_command_overview(text.data(), text.size() + 1);
    return text;
}

void add_send(CLI::App& app, const BoardOptions& board, SendOptions& options, int& code) {
    CLI::App* send = app.add_subcommand("send", "Send a command by its words: send iso 400");
    auto* words = send->add_option("words", options.words, "the command");
    auto* raw = send->add_option("--raw", options.raw, "send this JSON object as it is")->excludes(words);
    auto* wait = send->add_flag("--wait{10}", options.wait,
                                "wait until the camera's state shows it, at most 10 seconds, "
                                "or --wait=SECONDS")
                     ->check(formats::above_zero())
                     ->excludes(raw);
    send->add_option("--to", options.to,
                     "ADDRESS:PORT of the command port, when it is known and another process holds "
                     "the status port")
        ->excludes(wait);
    send->add_flag("--yes", options.yes, "don't ask before \"format sd\" and \"resetcamera\"");
    send->add_option("--timeout", options.timeout,
                     "seconds to wait for the first report, which tells the command port")
        ->check(formats::above_zero())
        ->capture_default_str();
    send->footer("Commands:\n" + command_overview() + "\n" + exit_code_help);
    send->callback([&, words, raw] {
        if (words->empty() && raw->empty()) {
            throw CLI::RequiredError("a command, or --raw");
        }
        code = run_send(board, options);
    });
}

void add_video(CLI::App& app, const BoardOptions& board, VideoOptions& options, int& code) {
    CLI::App* video = app.add_subcommand("video", "Write the live video: video --format mp4 | ffplay -i -");
    video->add_option("-o,--output", options.output, "file, or - for the standard output")
        ->capture_default_str();
    video
        ->add_option("--format", options.format,
                     "h264, the byte stream as it comes; mp4, fragmented, or ts: with the times of arrival")
        ->check(CLI::IsMember({"h264", "mp4", "ts"}))
        ->capture_default_str();
    video->add_option("--frames", options.frames, "end after so many frames of the ring")
        ->check(formats::count());
    video->add_option("--seconds", options.seconds, "end after this time")->check(formats::above_zero());
    video->callback([&] { code = run_video(board, options); });
}

void add_snapshot(CLI::App& app, const BoardOptions& board, SnapshotOptions& options, int& code) {
    CLI::App* snapshot =
        app.add_subcommand("snapshot", "Write the newest key picture, decoded by ffmpeg or GStreamer");
    snapshot->add_option("file", options.file, "file to write, .jpg or .png")->required();
    snapshot->add_option("--timeout", options.timeout, "seconds to wait for a picture")
        ->check(formats::above_zero())
        ->capture_default_str();
    snapshot->callback([&] { code = run_snapshot(board, options); });
}

void add_record(CLI::App& app, const BoardOptions& board, RecordOptions& options, int& code) {
    CLI::App* record = app.add_subcommand(
        "record", "Record the live video as MP4, with the state beside it: record flight.mp4");
    record
        ->add_option("file", options.file,
                     "file to write, which plays up to its last picture whatever ends the recording; the "
                     "state goes into "
                     "its .jsonl")
        ->required();
    record->add_option("--seconds", options.seconds, "end after this time")->check(formats::above_zero());
    record
        ->add_option("--split", options.split,
                     "minutes after which a new file begins: flight-2.mp4, flight-3.mp4")
        ->check(formats::above_zero());
    record->add_option("--keep-free", options.keep_free, "end when fewer megabytes are left on the disk")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    record->add_flag("!--no-state", options.with_state, "don't bind the status port");
    record->callback([&] { code = run_record(board, options); });
}

void add_relay(CLI::App& app, const BoardOptions& board, CaptureOptions& capture_options,
               InjectOptions& inject_options, int& code) {
    CLI::App* capture = app.add_subcommand("capture", "Record the raw stream into a file, with its times");
    capture->add_option("file", capture_options.file, "file to write")->required();
    capture->add_option("--seconds", capture_options.seconds, "end after this time")
        ->check(formats::above_zero());
    capture->add_option("--timeout", capture_options.timeout, "seconds to wait for the first bytes")
        ->check(formats::above_zero())
        ->capture_default_str();
    capture->callback([&] { code = run_capture(board, capture_options); });

    CLI::App* inject = app.add_subcommand(
        "inject", "Send a file's bytes to the remote controller; a capture with its times");
    inject->add_option("file", inject_options.file, "file to read")->required()->check(CLI::ExistingFile);
    inject->add_option("--timeout", inject_options.timeout, "seconds to wait until the link streams")
        ->check(formats::above_zero())
        ->capture_default_str();
    inject->callback([&] { code = run_inject(board, inject_options); });
}

void add_decode(CLI::App& app, DecodeOptions& options, int& code) {
    CLI::App* decode = app.add_subcommand("decode", "Take a capture apart; needs no service");
    decode->add_option("capture", options.file, "file to read")->required()->check(CLI::ExistingFile);
    decode->add_option(
        "--video", options.video,
        "file to write, .h264, or with the capture's times .mp4 or .ts; - for the standard output");
    decode->add_option("--packets", options.packets,
                       "file to write, a line of JSON for each packet; - for the standard output");
    decode->callback([&] { code = run_decode(options); });
}

void add_account(CLI::App& app, AccountOptions& options, int& code) {
    CLI::App* account =
        app.add_subcommand("account", "Compare what ardenvue-sim sent with what a monitor saw");
    account->add_option("sent", options.sent, "report of ardenvue-sim run --report")
        ->required()
        ->check(CLI::ExistingFile);
    account->add_option("seen", options.seen, "report of monitor --play --report")
        ->required()
        ->check(CLI::ExistingFile);
    account->add_option("--picture-size", options.picture_size,
                        "of the clip, 1920x1080; compared when given");
    account->callback([&] { code = run_account(options); });
}

}  // namespace

int main(int argc, char** argv) try {
    BoardOptions board;
    MonitorOptions monitor;
    StatusOptions status;
    SendOptions send;
    VideoOptions video;
    SnapshotOptions snapshot;
    RecordOptions record;
    CaptureOptions capture;
    InjectOptions inject;
    DecodeOptions decode;
    AccountOptions account;
    int code = done;

    CLI::App app{"Sees and uses a running ardenvue service, as a main application does."};
    app.set_version_flag("--version", "ardenvue-ctl " ARDENVUE_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(exit_code_help);
    add_board_options(app, board);
    add_monitor(app, board, monitor, code);
    add_status(app, board, status, code);
    add_send(app, board, send, code);
    add_video(app, board, video, code);
    add_snapshot(app, board, snapshot, code);
    add_record(app, board, record, code);
    add_relay(app, board, capture, inject, code);
    add_decode(app, decode, code);
    add_account(app, account, code);
    catch_stop_signals();
    const int parsed = formats::parse_command_line(app, argc, argv);
    const int written = finish_output();
    if (parsed >= 0) {
        return parsed == done ? written : parsed;
    }
    // Whatever else was missed, as a status line that had not come yet: the output is why it ended.
    return written == done ? code : written;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "ardenvue-ctl: %s\n", failure.what());
    return unusable;
}
