#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <cjson/cJSON.h>

#include "ctl/command_words.h"
#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"

namespace ctl {
namespace {

// What is to be sent: a command of the table, or an object as given (then the command has no row).
int prepare(const SendOptions& options, Command& command) {
    if (!options.raw.empty()) {
        const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> parsed{cJSON_Parse(options.raw.c_str()),
                                                                     cJSON_Delete};
        if (!parsed || !cJSON_IsObject(parsed.get())) {
            std::fprintf(stderr, "ardenvue-ctl: --raw is no JSON object: %s\n", options.raw.c_str());
            return bad_usage;
        }
        command = {nullptr, {}, {}, {}, options.raw};
        return done;
    }
    std::string words;
    for (const std::string& word : options.words) {
        words += word + " ";
    }
    ParsedCommand parsed = parse_command(words);
    if (!parsed.problem.empty()) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", parsed.problem.c_str());
        return bad_usage;
    }
    command = std::move(parsed.command);
    return done;
}

// What erases or resets is confirmed by the person at the terminal; a script says --yes.
bool is_wanted(const SendOptions& options, const Command& command) {
    const bool undoable = command.words != "format sd" && command.words != "resetcamera";
    if (undoable || options.yes) {
        return true;
    }
    if (isatty(STDIN_FILENO) == 0) {
        std::fprintf(stderr, "ardenvue-ctl: \"%s\" can't be undone: it needs --yes without a terminal\n",
                     command.words.c_str());
        return false;
    }
    std::fprintf(stderr, "\"%s\" can't be undone. Send it? [y/N] ", command.words.c_str());
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y';
}

int send_directly(const std::string& to, const Command& command) {
    if (!send_command_to(to, command.json)) {
        if (errno == EINVAL) {
            std::fprintf(stderr,
                         "ardenvue-ctl: --to takes an IPv4 address and a port, as 127.0.0.1:40000, not %s\n",
                         to.c_str());
            return bad_usage;
        }
        std::fprintf(stderr, "ardenvue-ctl: can't send to %s: %s\n", to.c_str(), std::strerror(errno));
        return unusable;
    }
    std::printf("sent %s to %s\n", command.json.c_str(), to.c_str());
    return done;
}

bool wait_for_line(ServiceLink& link, CameraView& view, double timeout) {
    const auto deadline = Clock::now() + seconds(timeout);
    while (!view.line && !stop_requested()) {
        if (!link.wait(view, deadline)) {
            return false;
        }
    }
    return view.line.has_value();
}

int wait_until_shown(ServiceLink& link, CameraView& view, const Command& command, double timeout) {
    if (command.row->shown == nullptr) {
        std::printf("no report shows \"%s\"\n", std::string{command.row->words}.c_str());
        return not_reported;
    }
    const CameraView before = view;
    const auto sent = Clock::now();
    while (!stop_requested() && link.wait(view, sent + seconds(timeout))) {
        if (command.row->shown(before, view.since(sent), command)) {
            std::printf("confirmed after %.1f s\n", in_seconds(Clock::now() - sent));
            return done;
        }
    }
    std::fprintf(stderr,
                 "ardenvue-ctl: not confirmed: after %.1f s the camera's state (%s) does not show it\n",
                 in_seconds(Clock::now() - sent), std::string{command.row->reported_in}.c_str());
    return not_confirmed;
}

}  // namespace

int run_send(const BoardOptions& board, const SendOptions& options) {
    Command command{};
    if (const int code = prepare(options, command); code != done) {
        return code;
    }
    if (!is_wanted(options, command)) {
        return bad_usage;
    }
    if (!options.to.empty()) {
        return send_directly(options.to, command);
    }
    ServiceLink link;
    if (const int code = link.open(board.address, board.status_port); code != done) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", link.problem().c_str());
        return code;
    }
    CameraView view;
    if (!wait_for_line(link, view, options.timeout)) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", silence_message(board.status_port).c_str());
        return silent;
    }
    link.drain(view);
    if (!link.send_command(command.json)) {
        std::fprintf(stderr, "ardenvue-ctl: can't send to %s: %s\n", link.service_name().c_str(),
                     std::strerror(errno));
        return unusable;
    }
    std::printf("sent %s to %s\n", command.json.c_str(), link.service_name().c_str());
    hand_on_output();
    return options.wait.empty() ? done : wait_until_shown(link, view, command, std::stod(options.wait));
}

}  // namespace ctl
