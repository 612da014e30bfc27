#include <cstdio>
#include <memory>
#include <optional>

#include <cjson/cJSON.h>

#include "ctl/exit_codes.h"
#include "ctl/output.h"
#include "ctl/seconds.h"
#include "ctl/service_link.h"
#include "ctl/stop_signal.h"
#include "ctl/subcommands.h"
#include "formats/nearest_word.h"

namespace ctl {
namespace {

void print_table(const ArdenvueLink* link) {
    const char* key = nullptr;
    const char* value = nullptr;
    for (std::size_t i = 0; ardenvue_link_pair(link, i, &key, &value) == 0; ++i) {
        std::printf("%-16s %s\n", key, value);
    }
}

void print_json(const ArdenvueLink* link) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object{cJSON_CreateObject(), cJSON_Delete};
    const char* key = nullptr;
    const char* value = nullptr;
    for (std::size_t i = 0; ardenvue_link_pair(link, i, &key, &value) == 0; ++i) {
        const auto number = ardenvue_key_is_number(key) ? formats::number_of(value) : std::nullopt;
        cJSON_AddItemToObject(object.get(), key,
                              number ? cJSON_CreateNumber(*number) : cJSON_CreateString(value));
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(object.get()), cJSON_free};
    std::puts(text.get());
}

}  // namespace

int run_status(const BoardOptions& board, const StatusOptions& options) {
    Link link;
    if (const int code = open_link(board, link); code != done) {
        return code;
    }
    auto deadline = Clock::now() + seconds(options.timeout);
    while (!stop_requested()) {
        const int code = ardenvue_link_wait(link.get(), ARDENVUE_STATUS_LINE, milliseconds_until(deadline));
        if (code == ARDENVUE_ERROR_INTERRUPTED) {
            continue;
        }
        if (code < 0) {
            std::fprintf(stderr, "ardenvue-ctl: %s\n", silence_message(board.status_port).c_str());
            return silent;
        }
        deadline = Clock::now() + seconds(options.timeout);
        if (options.json) {
            print_json(link.get());
        } else {
            print_table(link.get());
        }
        if (!options.watch) {
            return done;
        }
        std::puts(options.json ? "" : "\n");
        if (!hand_on_output()) {
            return unusable;
        }
    }
    return done;
}

}  // namespace ctl
