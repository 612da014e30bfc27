// ardenvue-ctl against the service on a simulated board, with a camera that answers.
#include <pty.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include <cjson/cJSON.h>
#include <gmock/gmock.h>

#include "ardenvue.h"
#include "ctl/command_words.h"
#include "ctl/exit_codes.h"
#include "ctl/service_link.h"
#include "formats/capture_file.h"
#include "sim/remote/clip.h"
#include "sim/remote/player.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace std::chrono_literals;
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
Result run(const char* program, const std::string& arguments) {
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

Result run_ctl(const std::string& arguments) {
    return run(CTL_PATH, arguments + " 2>&1");
}

Bytes contents(const fs::path& path) {
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

// A status port that nobody holds; below the kernel's own choices, so that none of those takes it in between.
std::uint16_t free_status_port() {
    static int tried = 0;
    for (;;) {
        const auto port = static_cast<std::uint16_t>(10'000 + (getpid() + 97 * tried++) % 20'000);
        ctl::ServiceLink link;
        if (link.open("127.0.0.1", port) == ctl::done) {
            return port;
        }
    }
}

blackbox::ServiceSetup with_status_port(std::uint16_t port) {
    blackbox::ServiceSetup setup;
    setup.with_port = false;
    setup.arguments = {"-s", std::to_string(port)};
    return setup;
}

// The service, streaming the clip and the pushes of a camera that answers, and a place for files.
class Stage {
  public:
    Stage() {
        char name[] = "/tmp/ardenvue-ctl-test.XXXXXX";
        directory_ = mkdtemp(name);
        EXPECT_FALSE(clip_.empty());
        service_.enumerate();
        player_ = std::make_unique<sim::Player>(service_.cable(), camera_, log_, stopwatch_,
                                                [](const std::string&) {});
        playing_ = std::thread{[this] {
            sim::LiveSource source{clip_, camera_, {}, stopwatch_.now()};
            player_->play(source, sim::Time::max(), stop_);
        }};
        std::ofstream{directory_ / "env"}
            << "STATUS_PORT=" << port_ << "\nRELAY_PORT=" << service_.board().relay_port(patience).value_or(0)
            << "\nFRAME_RING=" << service_.board().shm_name(ardenvue::frame_ring_name)
            << "\nRUN_DIR=" << service_.board().directory() << "/run\n";
    }
    ~Stage() {
        stop_ = true;
        playing_.join();
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
    const std::vector<sim::AccessUnit> clip_ = sim::load_clip(SIM_CLIPS "/1280x720.h264");
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

TEST_F(Ctl, SendsWordsAndTellsWhetherTheStateShowsThem) {
    const struct {
        const char* arguments;
        int code;
        const char* said;
        const char* camera_got;
    } cases[] = {
        {"send iso 400 --wait", ctl::done, "confirmed after", "iso 400"},
        {"send --wait=15 focus point 0.25 0.75", ctl::done, "confirmed after", "focus point 0.25 0.75"},
        {"send ev -0.3 --wait", ctl::done, "confirmed after", "ev -0.3"},
        {"send color black white", ctl::done, R"(sent {"cmd":"color","param":"black white"} to 127.0.0.1:)",
         "colour black white"},
        {"send gimbal mode fpv --wait", ctl::not_reported, "no report shows \"gimbal mode\"",
         "gimbal first-person"},
        // The lens does not close so far.
        {"send aperture 22 --wait=1.5", ctl::not_confirmed, "not confirmed", "aperture f/22.00 (refused)"},
        {R"(send --raw '{"cmd":"shutter","param":"1/500"}')", ctl::done, "sent", "shutter 1/500"},
        {"send iso 450", ctl::bad_usage, "did you mean \"400\"?", nullptr},
        {"send --raw '[1]'", ctl::bad_usage, "no JSON object", nullptr},
        {"send --raw ''", ctl::bad_usage, "command is missing", nullptr},
        {"send", ctl::bad_usage, "required", nullptr},
        {"sned iso 400", ctl::bad_usage, "", nullptr},
    };
    for (const auto& c : cases) {
        const Result result = stage().ctl(c.arguments);
        EXPECT_EQ(result.code, c.code) << c.arguments << '\n' << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.arguments;
        EXPECT_TRUE(c.camera_got == nullptr || stage().camera_got(c.camera_got)) << c.camera_got;
    }
}

TEST_F(Ctl, ShowsTheNewestStatusLine) {
    const Result table = stage().ctl("status");
    EXPECT_EQ(table.code, ctl::done);
    EXPECT_THAT(table.output, HasSubstr("camera_model     Phantom 4 Pro\n"));
    const Result json = stage().ctl("status --json");
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object{cJSON_Parse(json.output.c_str()),
                                                                 cJSON_Delete};
    ASSERT_TRUE(object) << json.output;
    EXPECT_EQ(cJSON_GetArraySize(object.get()), 34);
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(object.get(), "camera_model")), "Phantom 4 Pro");
    EXPECT_EQ(cJSON_GetNumberValue(cJSON_GetObjectItem(object.get(), "battery_temp")), 31.2);
}

TEST_F(Ctl, WritesTheVideoAsItWasStreamedFromAParameterSetOn) {
    const Result result = stage().ctl("video --frames 75 -o " + stage().file("video.h264"));
    EXPECT_EQ(result.code, ctl::done) << result.output;
    EXPECT_THAT(result.output, HasSubstr(" 0 frames missed"));
    const Bytes video = contents(stage().file("video.h264"));

    EXPECT_TRUE(stage().streams(video));
    ASSERT_GT(video.size(), 10'000u);
    EXPECT_EQ(Bytes(video.begin(), video.begin() + 4), (Bytes{0, 0, 0, 1}));
    EXPECT_EQ(video[4] & 0x1F, 7);
}

TEST_F(Ctl, CapturesTheStreamWithItsTimes) {
    const std::string file = stage().file("stream.cap");
    const Result result = stage().ctl("capture --seconds 2 " + file);
    EXPECT_EQ(result.code, ctl::done) << result.output;
    formats::CaptureReader capture;
    ASSERT_TRUE(capture.open(file));
    EXPECT_TRUE(capture.has_times());
    sim::Time last{0};
    int payloads = 0;
    Bytes video;
    formats::StreamReader frames{[&](formats::FrameType type, std::span<const std::uint8_t> payload) {
        if (type == formats::FrameType::video) {
            video.insert(video.end(), payload.begin(), payload.end());
            payloads += 1;
        }
    }};
    while (const auto record = capture.next()) {
        EXPECT_GE(record->time, last);
        last = record->time;
        frames.add(record->bytes);
    }
    EXPECT_FALSE(capture.damaged());
    EXPECT_GE(last, 1s);
    EXPECT_LE(last, 10s);

    EXPECT_GE(payloads, 10);
    EXPECT_TRUE(stage().streams(video));
}

TEST_F(Ctl, TheExamplesOfTheDocumentationWork) {
    const Result commander =
        run(EXAMPLE_COMMANDER,
            std::to_string(stage().port()) + R"( '{"cmd":"antiflicker","param":"60"}' 'antiflicker=60 Hz')");
    EXPECT_EQ(commander.code, 0);
    EXPECT_EQ(commander.output, "the camera's state shows antiflicker=60 Hz\n");
    const Result dump = run(EXAMPLE_RING_DUMP, stage().service().board().shm_name(ardenvue::frame_ring_name) +
                                                   " 40 2>&1 >" + stage().file("dump"));
    EXPECT_EQ(dump.code, 0);
    EXPECT_EQ(dump.output, "");
    EXPECT_TRUE(stage().streams(contents(stage().file("dump"))));
}

TEST_F(Ctl, PlaysAScriptAndReportsWhatBecameOfIt) {
    std::ofstream{stage().file("script")}
        << "record start\nwait 1   # let it run\n\nshutter 1/1000\nrecord stop\n"
           "orientation lock\norientation unlock\nshot\nhoriz";
    const Result wrong = stage().ctl("monitor --lines --play " + stage().file("script"));
    EXPECT_EQ(wrong.code, ctl::bad_usage);
    EXPECT_THAT(wrong.output,
                HasSubstr("script, line 9: unknown command \"horiz\": did you mean \"horizont\"?"));

    std::ofstream{stage().file("script"), std::ios::app} << "ont calibrate\naperture 22\n";
    const Result result = stage().ctl("monitor --lines --wait 8 --play " + stage().file("script") +
                                      " --report " + stage().file("report"));
    EXPECT_EQ(result.code, ctl::not_confirmed);
    EXPECT_THAT(result.output, HasSubstr("record start: confirmed after"));
    EXPECT_THAT(result.output, HasSubstr("horizont calibrate: sent (no report shows it)"));
    EXPECT_THAT(result.output, HasSubstr("aperture 22: NOT CONFIRMED"));
    EXPECT_THAT(result.output, HasSubstr("link up"));
    EXPECT_THAT(result.output, HasSubstr("video 1280x720"));

    const Bytes text = contents(stage().file("report"));
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> report{
        cJSON_Parse(std::string{text.begin(), text.end()}.c_str()), cJSON_Delete};
    ASSERT_TRUE(report);
    const auto number = [&](const char* object, const char* name) {
        return cJSON_GetNumberValue(cJSON_GetObjectItem(cJSON_GetObjectItem(report.get(), object), name));
    };
    EXPECT_EQ(number("script", "sent"), 8);
    EXPECT_EQ(number("script", "confirmed"), 6);
    EXPECT_EQ(number("script", "not_reported"), 1);
    EXPECT_EQ(number("script", "not_confirmed"), 1);
    EXPECT_EQ(number("ring", "missed"), 0);
    EXPECT_EQ(number("ring", "last_number") - number("ring", "first_number") + 1, number("ring", "frames"));
    EXPECT_GT(number("datagrams", "gimbal_focus_records"), number("datagrams", "status_lines"));
}

TEST_F(Ctl, HasAPictureOnATerminal) {
    const winsize size{40, 100, 0, 0};
    int terminal = -1;
    const std::string board = fs::path{stage().file("env")}.parent_path();
    const pid_t process = forkpty(&terminal, nullptr, nullptr, &size);
    ASSERT_GE(process, 0);
    if (process == 0) {
        setenv("TERM", "xterm", 1);
        execl(CTL_PATH, CTL_PATH, "--board", board.c_str(), "monitor", nullptr);
        _exit(99);
    }
    std::string picture;
    const auto shows = [&](const char* text) {
        return eventually([&] {
            char buffer[4096];
            pollfd readable{terminal, POLLIN, 0};
            const ssize_t count = poll(&readable, 1, 100) > 0 ? read(terminal, buffer, sizeof buffer) : 0;
            picture.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
            return picture.find(text) != std::string::npos;
        });
    };
    EXPECT_TRUE(shows("Phantom 4 Pro")) << picture;
    EXPECT_TRUE(shows("1280x720"));
    picture.clear();
    const winsize smaller{30, 60, 0, 0};
    ioctl(terminal, TIOCSWINSZ, &smaller);
    EXPECT_TRUE(shows("Phantom 4 Pro")) << "not drawn again after the window changed its size";
    EXPECT_EQ(write(terminal, "q", 1), 1);
    int status = -1;
    EXPECT_TRUE(eventually([&] {
        shows("\x1B[?1049l");  // the terminal is given back; reading on lets the client end
        return waitpid(process, &status, WNOHANG) == process;
    }));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), ctl::done);
    close(terminal);
}

// Sequences of commands that are sent beside each other: within one, each waits for the one before.
std::vector<std::vector<std::string>> all_words() {
    std::vector<std::vector<std::string>> lanes = {
        {"camera mode video", "camera mode photo", "record start", "record stop", "shot", "camera mode video",
         "shot"},
        {"position selfie", "position normal", "position selfie", "orientation lock", "orientation unlock",
         "position normal", "position normal"},
        {"focus point 0 1", "focus point 1 0", "focus point 0.25 0.75"},
        {"focus manual 0", "focus manual 33", "focus manual 100"},
        {"aperture 2.8", "aperture 4", "aperture 6.3", "aperture 11"},
        {"wb auto", "wb sunny", "wb cloudy", "wb incandescent", "wb neon", "wb custom 2000", "wb custom 5650",
         "wb custom 10000"},
        {"",
         "",
         "",
         "",
         "",
         "",
         "",
         "",
         "video_transmission Regular",
         "video_transmission HD",
         "video_transmission Smooth",
         "horizont calibrate",
         "gimbal mode tiltlocked",
         "gimbal mode fpv",
         "gimbal mode follow",
         "gimbal follow slow",
         "gimbal follow fast",
         "set movement abs",
         "set movement rel",
         "format sd"},
    };
    for (const ctl::CommandRow& row : ctl::command_rows()) {
        const bool in_a_lane = row.words == "wb" || row.words == "camera mode" || row.shown == nullptr;
        if (in_a_lane || row.arguments.size() != 1) {
            continue;
        }
        std::vector<std::string> lane;
        for (const ctl::Choice& choice : row.arguments.front().choices) {
            lane.push_back(std::string{row.words} + " " + std::string{choice.word});
        }
        lanes.push_back(lane);
    }
    return lanes;
}

// Every word that the client knows, and no other, is known to the service and means the same to the camera.
// One command of each sequence goes out at a time, since the state comes once a second.
TEST_F(Ctl, EveryWordIsUnderstoodFromEndToEnd) {
    ctl::ServiceLink link;
    ASSERT_EQ(link.open("127.0.0.1", stage().port()), ctl::done) << link.problem();
    ctl::CameraView view;
    const auto lanes = all_words();
    std::size_t rounds = 0;
    for (const auto& lane : lanes) {
        rounds = std::max(rounds, lane.size());
    }
    while (!view.line) {
        ASSERT_TRUE(link.wait(view, ctl::Clock::now() + patience));
    }
    for (std::size_t round = 0; round < rounds; ++round) {
        std::vector<ctl::Command> waiting;
        link.drain(view);
        const ctl::CameraView before = view;
        const auto sent = ctl::Clock::now();
        for (const auto& lane : lanes) {
            if (round >= lane.size() || lane[round].empty()) {
                continue;
            }
            const ctl::ParsedCommand parsed = ctl::parse_command(lane[round]);
            ASSERT_EQ(parsed.problem, "");
            ASSERT_TRUE(link.send_command(parsed.command.json));
            if (parsed.command.row->shown != nullptr) {
                waiting.push_back(parsed.command);
            }
        }
        const auto shown = [&](const ctl::Command& command) {
            return command.row->shown(before, view.since(sent), command);
        };
        while (!waiting.empty() && link.wait(view, sent + patience)) {
            std::erase_if(waiting, shown);
        }
        for (const ctl::Command& command : waiting) {
            ADD_FAILURE() << command.words << " was not shown";
        }
    }
    ASSERT_TRUE(link.send_command(R"({"cmd":"resetcamera"})"));
    for (const char* meaning :
         {"transmission regular", "transmission hd", "transmission smooth", "gimbal calibration 3",
          "gimbal first-person", "gimbal follow", "gimbal tilt locked", "gimbal follow speed slow",
          "gimbal follow speed fast", "format card", "reset"}) {
        EXPECT_TRUE(stage().camera_got(meaning)) << meaning;
    }
}

// Nothing streams, or something is not there: each has its exit code.
TEST(CtlAlone, SaysWhatIsMissing) {
    Service service;
    const std::string port = std::to_string(service.main_application().port());
    const std::string board = service.board().directory();
    const std::string relay = std::to_string(service.board().relay_port(patience).value_or(0));
    const std::string file = board + "/cwd/file";
    std::ofstream{file} << "not empty";
    const std::string here = " --run-dir " + board + "/run --relay-port " + relay + " --ring " +
                             service.board().shm_name(ardenvue::frame_ring_name) + " ";
    const std::string free_port = std::to_string(free_status_port());
    const struct {
        std::string arguments;
        int code;
        const char* said;
    } cases[] = {
        {"status --port " + port, ctl::port_taken, "is held by"},
        {"send shot --port " + port, ctl::port_taken, "is held by"},
        {"monitor --port " + port, ctl::port_taken, "is held by"},
        {"status --timeout 0.2 --port " + free_port, ctl::silent, "no status arrives"},
        {"send shot --timeout 0.2 --port " + free_port, ctl::silent, "no status arrives"},
        {"monitor --lines --seconds 0.2 --port " + free_port, ctl::silent, ""},
        {"video --seconds 0.2 -o /dev/null" + here, ctl::silent, "0 frames, 0 bytes"},
        {"video --ring /ardenvue-no-such-ring", ctl::unusable, "there is none"},
        {"capture --timeout 0.2 " + file + here, ctl::silent, "the relay sends nothing"},
        {"inject --timeout 0.2 " + file + here, ctl::silent, "the relay sends nothing"},
        {"inject " + file + ".absent" + here, ctl::bad_usage, "does not exist"},
        {"capture --relay-port 1 " + file, ctl::unusable, "Connection refused"},
        {"capture " + board + "/no/such/place" + here, ctl::unusable, "can't write"},
        {"--board " + board + " status", ctl::bad_usage, "no simulated board"},
        {"--help", ctl::done, "Exit codes:"},
        {"send --help", ctl::done, "focus point X Y"},
    };
    for (const auto& c : cases) {
        const Result result = run_ctl(c.arguments);
        EXPECT_EQ(result.code, c.code) << c.arguments << '\n' << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.arguments;
    }
}

TEST(CtlAlone, InjectsAFileInPacketsOfTheLink) {
    Service service;
    service.stream();
    Bytes bytes(700);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    }
    const std::string file = service.board().directory() + "/cwd/file";
    std::ofstream{file, std::ios::binary}.write(reinterpret_cast<const char*>(bytes.data()), 700);
    const Result result = run_ctl("inject " + file + " --relay-port " +
                                  std::to_string(service.board().relay_port(patience).value_or(0)));
    EXPECT_EQ(result.code, ctl::done) << result.output;
    EXPECT_THAT(result.output, HasSubstr("700 bytes sent"));
    Bytes arrived;
    while (arrived.size() < bytes.size()) {
        const Bytes packet = service.next_packet();
        ASSERT_FALSE(packet.empty());
        ASSERT_LE(packet.size(), 512u);
        arrived.insert(arrived.end(), packet.begin(), packet.end());
    }
    EXPECT_EQ(arrived, bytes);
}

}  // namespace
