#include "bench/campaign.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>

#include "sim/board/file_contents.h"

namespace campaign {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t nal_header_size = 5;

long number_behind(const std::string& text, const std::string& name) {
    const std::size_t at = text.find(name);
    return at == std::string::npos ? 0 : std::strtol(text.c_str() + at + name.size(), nullptr, 10);
}

// As many as there are, also when the directory goes meanwhile, as a process's does.
std::vector<fs::path> entries_of(const fs::path& directory) {
    std::vector<fs::path> entries;
    std::error_code gone;
    for (fs::directory_iterator entry{directory, gone}; !gone && entry != fs::directory_iterator{};
         entry.increment(gone)) {
        entries.push_back(entry->path());
    }
    return entries;
}

}  // namespace

ProcessFigures figures_of(pid_t process) {
    const fs::path proc = "/proc/" + std::to_string(process);
    const std::string status = sim::file_contents(proc / "status").value_or("");
    ProcessFigures figures;
    figures.anonymous_kb = number_behind(status, "RssAnon:");
    figures.threads = static_cast<int>(number_behind(status, "Threads:"));
    figures.descriptors = static_cast<int>(entries_of(proc / "fd").size());
    return figures;
}

ProcessFigures least_of(const std::vector<ProcessFigures>& samples) {
    ProcessFigures least = samples.empty() ? ProcessFigures{} : samples.front();
    for (const ProcessFigures& sample : samples) {
        least.anonymous_kb = std::min(least.anonymous_kb, sample.anonymous_kb);
        least.descriptors = std::min(least.descriptors, sample.descriptors);
        least.threads = std::min(least.threads, sample.threads);
    }
    return least;
}

int processes_with(const std::string& environment) {
    int count = 0;
    for (const fs::path& process : entries_of("/proc")) {
        if (process.filename().string().find_first_not_of("0123456789") == std::string::npos) {
            count +=
                sim::file_contents(process / "environ").value_or("").find(environment) != std::string::npos;
        }
    }
    return count;
}

int shared_objects_with(const std::string& prefix) {
    return static_cast<int>(std::ranges::count_if(entries_of("/dev/shm"), [&](const fs::path& object) {
        return object.filename().string().starts_with(prefix);
    }));
}

std::vector<sim::AccessUnit> dense_clip(const std::string& path, double bits_per_second,
                                        double frames_per_second) {
    std::vector<sim::AccessUnit> clip = sim::load_clip(path);
    const auto wanted = static_cast<std::size_t>(bits_per_second / 8 / frames_per_second);
    std::mt19937 random{1};
    for (sim::AccessUnit& picture : clip) {
        std::size_t size = 0;
        for (const sim::Bytes& payload : picture.payloads) {
            size += payload.size();
        }
        while (size + nal_header_size < wanted) {
            sim::Bytes& unit = picture.payloads.emplace_back(std::min(wanted - size, sim::max_video_payload));
            // No byte is 0, so that no start code is among them.
            std::generate(unit.begin(), unit.end(),
                          [&] { return static_cast<std::uint8_t>(random() >> 8 | 1U); });
            const sim::Bytes header = {0, 0, 0, 1, 30};
            std::copy(header.begin(), header.end(), unit.begin());
            size += unit.size();
        }
    }
    return clip;
}

double quantile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

bool judge(const char* what, const std::string& figure, bool right) {
    std::printf("  %-46s %28s   %s\n", what, figure.c_str(), right ? "ok" : "WRONG");
    return right;
}

void note(const char* what, const std::string& figure) {
    std::printf("  %-46s %28s\n", what, figure.c_str());
}

}  // namespace campaign
