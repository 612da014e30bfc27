#include "ctl/play_report.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <memory>

#include <cjson/cJSON.h>

#include "ctl/seconds.h"
#include "formats/json.h"

namespace ctl {
namespace {

void add_number(cJSON* object, const char* name, std::uint64_t value) {
    cJSON_AddNumberToObject(object, name, static_cast<double>(value));
}

void add_commands(cJSON* root, const ScriptPlayer& player, Clock::time_point start) {
    cJSON* summary = cJSON_AddObjectToObject(root, "script");
    const auto count = [&](Outcome outcome) {
        return static_cast<std::uint64_t>(
            std::count_if(player.played().begin(), player.played().end(),
                          [&](const PlayedCommand& played) { return played.outcome == outcome; }));
    };
    add_number(summary, "commands", player.command_count());
    add_number(summary, "sent", player.played().size() - count(Outcome::not_sent));
    add_number(summary, "confirmed", count(Outcome::confirmed));
    add_number(summary, "not_reported", count(Outcome::not_reported));
    add_number(summary, "not_confirmed", count(Outcome::not_confirmed) + count(Outcome::waiting));
    cJSON* commands = cJSON_AddArrayToObject(root, "commands");
    for (const PlayedCommand& played : player.played()) {
        cJSON* item = cJSON_CreateObject();
        cJSON_AddStringToObject(item, "words", played.command.words);
        cJSON_AddStringToObject(item, "json", played.command.json);
        cJSON_AddNumberToObject(item, "sent_at", in_seconds(played.sent - start));
        cJSON_AddStringToObject(item, "outcome", outcome_text(played.outcome));
        if (played.outcome == Outcome::confirmed) {
            cJSON_AddNumberToObject(item, "confirmed_at", in_seconds(played.ended - start));
        }
        cJSON_AddItemToArray(commands, item);
    }
}

}  // namespace

bool write_report(const std::string& path, const MonitorState& state, const VideoFeed& video,
                  Clock::time_point start) {
    const formats::Json root{cJSON_CreateObject()};
    cJSON_AddNumberToObject(root.get(), "seconds", in_seconds(Clock::now() - start));
    if (state.player != nullptr) {
        add_commands(root.get(), *state.player, start);
    }
    cJSON* ring = cJSON_AddObjectToObject(root.get(), "ring");
    add_number(ring, "frames", state.ring.frames);
    add_number(ring, "bytes", state.ring.bytes);
    add_number(ring, "missed", state.ring.missed);
    add_number(ring, "restarts", state.ring.restarts);
    char digest[17];
    std::snprintf(digest, sizeof digest, "%016" PRIx64, video.digest());
    cJSON_AddStringToObject(ring, "digest", digest);
    if (video.first_number()) {
        add_number(ring, "first_number", *video.first_number());
        add_number(ring, "last_number", *video.last_number());
    }
    cJSON* datagrams = cJSON_AddObjectToObject(root.get(), "datagrams");
    ArdenvueLinkTotals totals;
    ardenvue_link_totals(state.link, &totals);
    add_number(datagrams, "status_lines", totals.status_lines);
    add_number(datagrams, "gimbal_focus_records", totals.gimbal_focus_records);
    add_number(datagrams, "histogram_records", totals.histogram_records);
    add_number(datagrams, "ignored", totals.ignored);
    cJSON_AddStringToObject(root.get(), "picture_size", state.picture_size.c_str());
    if (state.has_line()) {
        cJSON* line = cJSON_AddObjectToObject(root.get(), "status");
        const char* key = nullptr;
        const char* value = nullptr;
        for (std::size_t i = 0; ardenvue_link_pair(state.link, i, &key, &value) == 0; ++i) {
            cJSON_AddStringToObject(line, key, value);
        }
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_Print(root.get()), cJSON_free};
    std::ofstream file{path};
    file << text.get() << '\n';
    return file.flush().good();
}

}  // namespace ctl
