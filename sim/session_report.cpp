#include <cinttypes>
#include <cstdio>

#include "sim/session.h"

namespace sim {

void Session::print_summary() const {
    const double seconds = std::chrono::duration<double>(played_).count();
    std::printf("\nPlayed %.1f s: %" PRIu64 " video payloads, %" PRIu64 " bytes of video, %" PRIu64
                " pushes, %" PRIu64 " bytes in all (%.1f MB/s)\n",
                seconds, tally_.video.frames, tally_.video.bytes, tally_.packets, tally_.stream_bytes,
                seconds > 0 ? static_cast<double>(tally_.stream_bytes) / seconds / 1e6 : 0);
    std::printf("Commands received:%s\n", camera_.commands().empty() ? " none" : "");
    for (const CommandRecord& command : camera_.commands()) {
        std::printf("  %9s  %s", seconds_text(command.time).c_str(), command.meaning.c_str());
        std::printf(command.times > 1 ? " (%" PRIu32 " times)\n" : "\n", command.times);
    }
    const std::vector<std::string> all = problems();
    for (const std::string& text : all) {
        std::printf("PROBLEM: %s\n", text.c_str());
    }
    std::printf(all.empty() ? "All is well.\n" : "%zu problems.\n", all.size());
}

bool Session::write_report() const {
    const formats::File file{std::fopen(options_.report.c_str(), "w")};
    if (!file) {
        return false;
    }
    const auto line = [&file](const char* name, const std::string& value) {
        std::fprintf(file.get(), "%s=%s\n", name, value.c_str());
    };
    const std::vector<std::string> all = problems();
    char digest[17];
    std::snprintf(digest, sizeof digest, "%016" PRIx64, tally_.video.digest);
    line("RESULT", all.empty() ? "well" : "problems");
    line("SECONDS", seconds_text(played_));
    line("SERVICE_STARTS", std::to_string(starts_));
    line("SERVICE_CPU_SECONDS", std::to_string(cpu_seconds_));
    line("VIDEO_FRAMES", std::to_string(tally_.video.frames));
    line("VIDEO_BYTES", std::to_string(tally_.video.bytes));
    line("VIDEO_DIGEST", digest);
    line("PUSHES", std::to_string(tally_.packets));
    line("PUSHES_CORRUPTED", std::to_string(corrupted_packets_ + (live_ ? live_->corrupted_packets() : 0)));
    line("STREAM_BYTES", std::to_string(tally_.stream_bytes));
    line("PACKETS_RECEIVED", std::to_string(transfers_));
    for (const CommandRecord& command : camera_.commands()) {
        line("COMMAND",
             seconds_text(command.time) + " " + std::to_string(command.times) + " " + command.meaning);
    }
    for (const std::string& text : all) {
        line("PROBLEM", text);
    }
    return std::fflush(file.get()) == 0;
}

}  // namespace sim
