// The functions of ardenvue/commands.h that take words.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include <cjson/cJSON.h>

#include "ardenvue/commands.h"
#include "client/command_words.h"
#include "client/guarded.h"
#include "client/link.h"
#include "client/monotonic.h"

namespace {

using client::CommandRow;

template <std::size_t size>
void copy(char (&to)[size], std::string_view text) {
    std::snprintf(to, size, "%.*s", static_cast<int>(text.size()), text.data());
}

}  // namespace

int ardenvue_send(ArdenvueLink* link, const char* words) {
    return client::guarded([&] {
        const client::ParsedCommand parsed = client::parse_command(words);
        return parsed.problem.empty() ? link->send_command(parsed.command.awaited, parsed.command.json)
                                      : link->fail(ARDENVUE_ERROR_COMMAND, parsed.problem);
    });
}

int ardenvue_send_json(ArdenvueLink* link, const char* json) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> parsed{cJSON_Parse(json), cJSON_Delete};
    if (!parsed || !cJSON_IsObject(parsed.get())) {
        return link->fail(ARDENVUE_ERROR_COMMAND, "no JSON object");
    }
    return link->send_command({}, json);
}

int ardenvue_command_check(const char* words, struct ArdenvueCommand* command, char* reason,
                           std::size_t reason_size) {
    *command = {};
    return client::guarded([&] {
        const client::ParsedCommand parsed = client::parse_command(words);
        if (reason != nullptr && reason_size > 0) {
            std::snprintf(reason, reason_size, "%s", parsed.problem.c_str());
        }
        if (!parsed.problem.empty()) {
            return static_cast<int>(ARDENVUE_ERROR_COMMAND);
        }
        copy(command->words, parsed.command.words);
        copy(command->name, parsed.command.awaited.row->words);
        copy(command->json, parsed.command.json);
        copy(command->reported_in, parsed.command.awaited.row->reported_in);
        return 0;
    });
}

// The texts of the table are literals, so they end with a NUL.
const char* ardenvue_command_name(std::size_t index) {
    const auto rows = client::command_rows();
    return index < rows.size() ? rows[index].words.data() : nullptr;
}

const char* ardenvue_command_choice(const char* name, std::size_t index) {
    for (const CommandRow& row : client::command_rows()) {
        if (row.words == name && index < row.arguments[0].choices.size()) {
            return row.arguments[0].choices[index].word.data();
        }
    }
    return nullptr;
}

int ardenvue_command_overview(char* text, std::size_t size) {
    return client::guarded(
        [&] { return std::snprintf(text, size, "%s", client::command_overview().c_str()); });
}

int ardenvue_confirm(ArdenvueLink* link, int number, int timeout_ms) {
    using client::Nanoseconds;
    const client::SentCommand* const command = link->find_sent(number);
    if (command == nullptr) {
        return link->fail(ARDENVUE_ERROR_ARGUMENT, "no such command is remembered");
    }
    if (command->awaited.row == nullptr || command->awaited.row->shown == nullptr) {
        return ARDENVUE_ERROR_NOT_REPORTED;
    }
    const Nanoseconds end = client::monotonic_now() + Nanoseconds{timeout_ms} * 1'000'000;
    while (command->confirmation == 0) {
        const Nanoseconds left = (end - client::monotonic_now() + 999'999) / 1'000'000;
        if (timeout_ms >= 0 && left <= 0) {
            return ARDENVUE_ERROR_TIMEOUT;
        }
        const int got = link->wait(ARDENVUE_ANY_REPORT, timeout_ms < 0 ? -1 : static_cast<int>(left));
        if (got < 0 && got != ARDENVUE_ERROR_TIMEOUT) {
            return got;
        }
    }
    return command->confirmation;
}
