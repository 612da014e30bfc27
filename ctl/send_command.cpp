#include <unistd.h>

#include <cstdio>
#include <string>

#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "formats/json.h"

namespace ctl {
namespace {

// Looks at what is to be sent: a command of the table, or an object as given, which only its json tells.
int check(const SendOptions& options, ArdenvueCommand& command, std::string& words) {
    if (!options.raw.empty()) {
        const formats::Json parsed{cJSON_Parse(options.raw.c_str())};
        if (!cJSON_IsObject(parsed.get())) {
            std::fprintf(stderr, "ardenvue-ctl: --raw is no JSON object: %s\n", options.raw.c_str());
            return bad_usage;
        }
        return done;
    }
    for (const std::string& word : options.words) {
        words += word + " ";
    }
    char reason[ARDENVUE_REASON_SIZE];
    if (const int code = ardenvue_command_check(words.c_str(), &command, reason, sizeof reason); code < 0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", reason);
        return bad_usage;
    }
    return done;
}

// What erases or resets is confirmed by the person at the terminal; a script says --yes.
bool is_wanted(const SendOptions& options, const std::string& words) {
    const bool undoable = words != "format sd" && words != "resetcamera";
    if (undoable || options.yes) {
        return true;
    }
    if (isatty(STDIN_FILENO) == 0) {
        std::fprintf(stderr, "ardenvue-ctl: \"%s\" can't be undone: it needs --yes without a terminal\n",
                     words.c_str());
        return false;
    }
    std::fprintf(stderr, "\"%s\" can't be undone. Send it? [y/N] ", words.c_str());
    const int answer = std::getchar();
    return answer == 'y' || answer == 'Y';
}

int open_to(const std::string& to, Link& link) {
    ArdenvueLink* opened = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    const int code = ardenvue_link_open_unbound(&opened, to.c_str(), reason, sizeof reason);
    link.reset(opened);
    if (code == ARDENVUE_ERROR_ARGUMENT) {
        std::fprintf(stderr,
                     "ardenvue-ctl: --to takes an IPv4 address and a port, as 127.0.0.1:40000, not %s\n",
                     to.c_str());
        return bad_usage;
    }
    if (code < 0) {
        std::fprintf(stderr, "ardenvue-ctl: can't send to %s: %s\n", to.c_str(), reason);
        return unusable;
    }
    return done;
}

// Waits until the command port is known. A command that is to be confirmed waits for a line, too: what was
// there before tells what came.
int meet_service(const BoardOptions& board, const SendOptions& options, ArdenvueLink* link) {
    const auto deadline = Clock::now() + seconds(options.timeout);
    const ArdenvueReport awaited = options.wait.empty() ? ARDENVUE_ANY_REPORT : ARDENVUE_STATUS_LINE;
    int code = ARDENVUE_ERROR_INTERRUPTED;
    while (code == ARDENVUE_ERROR_INTERRUPTED && !stop_requested()) {
        code = ardenvue_link_wait(link, awaited, milliseconds_until(deadline));
    }
    if (code < 0) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", silence_message(board.status_port).c_str());
        return silent;
    }
    return done;
}

int wait_until_shown(ArdenvueLink* link, int number, const ArdenvueCommand& command, double timeout) {
    const auto sent = Clock::now();
    int code = ARDENVUE_ERROR_INTERRUPTED;
    while (code == ARDENVUE_ERROR_INTERRUPTED && !stop_requested()) {
        code = ardenvue_confirm(link, number, milliseconds_until(sent + seconds(timeout)));
    }
    if (code == ARDENVUE_ERROR_NOT_REPORTED) {
        std::printf("no report shows \"%s\"\n", command.name);
        return not_reported;
    }
    const double waited = in_seconds(Clock::now() - sent);
    if (code > 0) {
        std::printf("confirmed after %.1f s\n", waited);
        return done;
    }
    std::fprintf(stderr,
                 "ardenvue-ctl: not confirmed: after %.1f s the camera's state (%s) does not show it\n",
                 waited, command.reported_in);
    return not_confirmed;
}

}  // namespace

int run_send(const BoardOptions& board, const SendOptions& options) {
    ArdenvueCommand command{};
    std::string words;
    if (const int code = check(options, command, words); code != done) {
        return code;
    }
    if (!is_wanted(options, command.words)) {
        return bad_usage;
    }
    Link link;
    if (const int code = options.to.empty() ? open_link(board, link) : open_to(options.to, link);
        code != done) {
        return code;
    }
    if (options.to.empty()) {
        if (const int code = meet_service(board, options, link.get()); code != done) {
            return code;
        }
    }
    const int number = options.raw.empty() ? ardenvue_send(link.get(), words.c_str())
                                           : ardenvue_send_json(link.get(), options.raw.c_str());
    const auto& bridge = link.get_deleter().bridge;
    const std::string service = bridge ? bridge->url() : ardenvue_link_service(link.get());
    if (number < 0) {
        std::fprintf(stderr, "ardenvue-ctl: %s to %s\n", ardenvue_link_problem(link.get()), service.c_str());
        return unusable;
    }
    if (!has_arrived(link)) {
        return unusable;
    }
    std::printf("sent %s to %s\n", options.raw.empty() ? command.json : options.raw.c_str(), service.c_str());
    hand_on_output();
    return options.wait.empty() ? done
                                : wait_until_shown(link.get(), number, command, std::stod(options.wait));
}

}  // namespace ctl
