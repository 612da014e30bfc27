#include <algorithm>
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

void print_table(const StatusLine& line) {
    for (const auto& [key, value] : line.pairs) {
        std::printf("%-16s %s\n", key.c_str(), value.c_str());
    }
}

bool is_number_key(std::string_view name) {
    const auto keys = status_keys();
    return std::any_of(keys.begin(), keys.end(),
                       [&](const StatusKey& key) { return key.is_number && key.name == name; });
}

void print_json(const StatusLine& line) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object{cJSON_CreateObject(), cJSON_Delete};
    for (const auto& [key, value] : line.pairs) {
        const auto number = is_number_key(key) ? formats::number_of(value) : std::nullopt;
        cJSON_AddItemToObject(object.get(), key.c_str(),
                              number ? cJSON_CreateNumber(*number) : cJSON_CreateString(value.c_str()));
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(object.get()), cJSON_free};
    std::puts(text.get());
}

}  // namespace

int run_status(const BoardOptions& board, const StatusOptions& options) {
    ServiceLink link;
    if (const int code = link.open(board.address, board.status_port); code != done) {
        std::fprintf(stderr, "ardenvue-ctl: %s\n", link.problem().c_str());
        return code;
    }
    CameraView view;
    Clock::time_point shown = view.line_time;
    auto deadline = Clock::now() + seconds(options.timeout);
    while (!stop_requested()) {
        if (!link.wait(view, deadline)) {
            if (!stop_requested()) {
                std::fprintf(stderr, "ardenvue-ctl: %s\n", silence_message(board.status_port).c_str());
            }
            return stop_requested() ? done : silent;
        }
        if (view.line_time == shown) {
            continue;
        }
        shown = view.line_time;
        deadline = Clock::now() + seconds(options.timeout);
        if (options.json) {
            print_json(*view.line);
        } else {
            print_table(*view.line);
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
