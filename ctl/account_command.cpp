#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <cjson/cJSON.h>

#include "ctl/exit_codes.h"
#include "ctl/subcommands.h"
#include "formats/json.h"

namespace ctl {
namespace {

using formats::Json;

// The report of the simulator: NAME=VALUE lines, PROBLEM as often as there was one.
struct Sent {
    std::map<std::string, std::string> values;
    std::vector<std::string> problems;

    std::string value(const char* name) const {
        const auto at = values.find(name);
        return at == values.end() ? "-" : at->second;
    }
    double number(const char* name) const { return std::strtod(value(name).c_str(), nullptr); }
};

Sent read_sent(std::ifstream file) {
    Sent sent;
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string name = line.substr(0, equals);
        if (name == "PROBLEM") {
            sent.problems.push_back(line.substr(equals + 1));
        } else {
            sent.values[name] = line.substr(equals + 1);
        }
    }
    return sent;
}

// A member of the monitor's report, or of an object in it; a whole number without a point, "-" when there is
// none.
std::string seen(const cJSON* report, const char* object, const char* name) {
    const cJSON* const item =
        cJSON_GetObjectItem(object == nullptr ? report : cJSON_GetObjectItem(report, object), name);
    if (cJSON_IsNumber(item)) {
        char text[32];
        std::snprintf(text, sizeof text, "%.0f", item->valuedouble);
        return text;
    }
    return cJSON_IsString(item) && item->valuestring[0] != '\0' ? item->valuestring : "-";
}

bool compare(const char* what, const std::string& sent, const std::string& arrived) {
    const bool same = sent == arrived && sent != "-";
    std::printf("  %-34s %18s %18s   %s\n", what, sent.c_str(), arrived.c_str(), same ? "same" : "DIFFERENT");
    return same;
}

void print_commands(const cJSON* report) {
    const auto number = [](const cJSON* command, const char* name) {
        return cJSON_GetNumberValue(cJSON_GetObjectItem(command, name));
    };
    const cJSON* command = nullptr;
    cJSON_ArrayForEach(command, cJSON_GetObjectItem(report, "commands")) {
        std::printf("  %-20s %s", seen(command, nullptr, "words").c_str(),
                    seen(command, nullptr, "outcome").c_str());
        if (cJSON_HasObjectItem(command, "confirmed_at")) {
            std::printf(" after %.1f s", number(command, "confirmed_at") - number(command, "sent_at"));
        }
        std::printf("\n");
    }
}

void print_figures(const Sent& sent, const cJSON* report) {
    const auto status = [report](const char* key) { return seen(report, "status", key); };
    std::printf("  camera at the end: %s, ISO %s, %s s, f/%s, battery %s %%, %s photos left\n",
                status("camera_mode").c_str(), status("iso").c_str(), status("shutter").c_str(),
                status("aperture").c_str(), status("battery_level").c_str(), status("shots_left").c_str());
    const double seconds = std::max(sent.number("SECONDS"), 0.001);
    const double frames = std::strtod(seen(report, "ring", "frames").c_str(), nullptr);
    const double bytes = std::strtod(seen(report, "ring", "bytes").c_str(), nullptr);
    std::printf(
        "  in %.1f s: %.1f frames/s, %.2f Mbit/s of video, %s pushes to the service, %s packets from it,\n",
        seconds, frames / seconds, bytes * 8 / seconds / 1e6, sent.value("PUSHES").c_str(),
        sent.value("PACKETS_RECEIVED").c_str());
    std::printf("  %s status lines and %s gimbal records to the main application\n",
                seen(report, "datagrams", "status_lines").c_str(),
                seen(report, "datagrams", "gimbal_focus_records").c_str());
    std::printf("  processor time of the service: %.2f s, start included\n",
                sent.number("SERVICE_CPU_SECONDS"));
}

}  // namespace

int run_account(const AccountOptions& options) {
    const Sent sent = read_sent(std::ifstream{options.sent});
    std::ifstream file{options.seen};
    const std::string text{std::istreambuf_iterator<char>{file}, {}};
    const Json report{cJSON_Parse(text.c_str())};
    if (sent.values.empty() || !report) {
        std::fprintf(stderr, "ardenvue-ctl: %s is no report\n",
                     (report ? options.sent : options.seen).c_str());
        return unusable;
    }
    const auto arrived = [&report](const char* object, const char* name) {
        return seen(report.get(), object, name);
    };
    std::printf("\n  %-34s %18s %18s\n", "", "sent", "arrived");
    bool same = compare("frames of video", sent.value("VIDEO_FRAMES"), arrived("ring", "frames"));
    same &= compare("bytes of video", sent.value("VIDEO_BYTES"), arrived("ring", "bytes"));
    same &= compare("digest of their contents", sent.value("VIDEO_DIGEST"), arrived("ring", "digest"));
    if (!options.picture_size.empty()) {
        same &= compare("picture size", options.picture_size, arrived(nullptr, "picture_size"));
    }
    same &= compare("commands confirmed by the camera", arrived("script", "commands"),
                    arrived("script", "confirmed"));
    std::printf("\n");
    print_commands(report.get());
    std::printf("\n");
    print_figures(sent, report.get());
    for (const std::string& problem : sent.problems) {
        std::printf("  the remote controller complains: %s\n", problem.c_str());
    }
    return same && sent.value("RESULT") == "well" ? done : different;
}

}  // namespace ctl
