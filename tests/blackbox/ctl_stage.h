// The client's tests: the service on a simulated board, streaming to a camera that answers, and the programs
// run through the shell.
#pragma once

#include <pty.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

#include <cjson/cJSON.h>
#include <gmock/gmock.h>

#include "ardenvue.h"
#include "ardenvue/client.h"
#include "ctl/exit_codes.h"
#include "ctl/service_link.h"
#include "formats/capture_file.h"
#include "sim/remote/clip.h"
#include "sim/remote/player.h"
#include "tests/blackbox/harness.h"

namespace ctl_stage {

using namespace std::chrono_literals;
using blackbox::contents;
using blackbox::eventually;
using blackbox::patience;
using blackbox::Service;
using sim::Bytes;
using testing::HasSubstr;
namespace fs = std::filesystem;

struct Result {
    int code;
    std::string output;  // both streams
};

// Runs a program through the shell.
inline Result run(const char* program, const std::string& arguments) {
    std::FILE* const pipe = popen(("exec '" + std::string{program} + "' " + arguments).c_str(), "r");
    Result result{-1, {}};
    char buffer[4096];
    for (std::size_t count = 1; count > 0;) {
        count = std::fread(buffer, 1, sizeof buffer, pipe);
        result.output.append(buffer, count);
    }
    const int status = pclose(pipe);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return result;
}

inline Result run_ctl(const std::string& arguments) {
    return run(CTL_PATH, arguments + " 2>&1");
}

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

inline Json parse_json(const std::string& text) {
    return {cJSON_ParseWithOpts(text.c_str(), nullptr, true), cJSON_Delete};
}

// The value at a path, "link.state": a text as it is, all else as JSON; empty where there is none.
inline std::string at(const Json& object, const std::string& path) {
    const cJSON* item = object.get();
    std::istringstream names{path};
    for (std::string name; std::getline(names, name, '.');) {
        item = cJSON_GetObjectItemCaseSensitive(item, name.c_str());
    }
    if (cJSON_IsString(item)) {
        return cJSON_GetStringValue(item);
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> text{cJSON_PrintUnformatted(item), cJSON_free};
    return text ? text.get() : "";
}

// A status port that nobody holds; below the kernel's own choices, so that none of those takes it in between.
inline std::uint16_t free_status_port() {
    static int tried = 0;
    for (;;) {
        const auto port = static_cast<std::uint16_t>(10'000 + (getpid() + 97 * tried++) % 20'000);
        ArdenvueLink* link = nullptr;
        if (ardenvue_link_open(&link, nullptr, port, nullptr, 0) == 0) {
            ardenvue_link_close(link);
            return port;
        }
    }
}

inline blackbox::ServiceSetup with_status_port(std::uint16_t port) {
    blackbox::ServiceSetup setup;
    setup.with_port = false;
    setup.arguments = {"-s", std::to_string(port)};
    return setup;
}

// The service, streaming the clip and the pushes of a camera that answers, and a place for files.
class Stage {
  public:
    explicit Stage(const std::string& clip = SIM_CLIPS "/1280x720.h264", double frames_per_second = 30)
        : clip_{sim::load_clip(clip)} {
        char name[] = "/tmp/ardenvue-ctl-test.XXXXXX";
        directory_ = mkdtemp(name);
        EXPECT_FALSE(clip_.empty());
        service_.enumerate();
        player_ = std::make_unique<sim::Player>(service_.cable(), camera_, log_, stopwatch_,
                                                [](const std::string&) {});
        playing_ = std::thread{[this, frames_per_second] {
            sim::LiveSource::Options options;
            options.frames_per_second = frames_per_second;
            sim::LiveSource source{clip_, camera_, options, stopwatch_.now()};
            player_->play(source, sim::Time::max(), stop_);
        }};
        std::ofstream{directory_ / "env"}
            << "STATUS_PORT=" << port_ << "\nRELAY_PORT=" << service_.board().relay_port(patience).value_or(0)
            << "\nFRAME_RING=" << service_.board().shm_name(ardenvue::frame_ring_name)
            << "\nRUN_DIR=" << service_.board().directory() << "/run\n";
    }
    ~Stage() {
        stop_streaming();
        player_.reset();
        fs::remove_all(directory_);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    std::uint16_t port() const { return port_; }
    std::string file(const std::string& name) const { return directory_ / name; }
    const std::vector<sim::AccessUnit>& clip() const { return clip_; }
    Service& service() { return service_; }
    sim::Camera& camera() { return camera_; }

    void stop_streaming() {
        stop_ = true;
        if (playing_.joinable()) {
            playing_.join();
        }
    }

    Result ctl(const std::string& arguments) const {
        return run_ctl("--board " + directory_.string() + " " + arguments);
    }

    // True for a stretch of the clip, played over and over, from the beginning of a payload on.
    bool streams(const Bytes& video) const {
        std::vector<Bytes> payloads;
        for (const sim::AccessUnit& picture : clip_) {
            payloads.insert(payloads.end(), picture.payloads.begin(), picture.payloads.end());
        }
        for (std::size_t start = 0; start < payloads.size(); ++start) {
            std::size_t at = 0;
            for (std::size_t i = start; at < video.size(); ++i) {
                const Bytes& payload = payloads[i % payloads.size()];
                const std::size_t size = std::min(payload.size(), video.size() - at);
                if (!std::equal(payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(size),
                                video.begin() + static_cast<std::ptrdiff_t>(at))) {
                    break;
                }
                at += size;
            }
            if (at == video.size()) {
                return !video.empty();
            }
        }
        return false;
    }

    bool camera_got(const std::string& meaning) const {
        return eventually([&] {
            const auto commands = camera_.commands();
            return std::any_of(commands.begin(), commands.end(),
                               [&](const sim::CommandRecord& command) { return command.meaning == meaning; });
        });
    }

  private:
    fs::path directory_;
    const std::vector<sim::AccessUnit> clip_;
    const std::uint16_t port_ = free_status_port();
    Service service_{with_status_port(port_)};
    sim::Camera camera_;
    sim::PacketLog log_;
    sim::Stopwatch stopwatch_;
    std::unique_ptr<sim::Player> player_;
    std::atomic<bool> stop_{false};
    std::thread playing_;
};

class Ctl : public testing::Test {
  protected:
    static void SetUpTestSuite() { stage_ = std::make_unique<Stage>(); }
    static void TearDownTestSuite() {
        EXPECT_THAT(stage_->camera().complaints(), testing::IsEmpty());
        stage_.reset();
    }

    static Stage& stage() { return *stage_; }

  private:
    static inline std::unique_ptr<Stage> stage_;
};

}  // namespace ctl_stage
