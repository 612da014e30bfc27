// ardenvue-ctl against the service on a simulated board, with a camera that answers.
#include "tests/blackbox/ctl_stage.h"

namespace {

using namespace ctl_stage;

TEST_F(Ctl, SendsWordsAndTellsWhetherTheStateShowsThem) {
    const struct {
        const char* arguments;
        int code;
        const char* said;
        const char* camera_got;
    } cases[] = {
        {"send iso 400 --wait=30", ctl::done, "confirmed after", "iso 400"},
        {"send --wait=30 focus point 0.25 0.75", ctl::done, "confirmed after", "focus point 0.25 0.75"},
        {"send ev -0.3 --wait=30", ctl::done, "confirmed after", "ev -0.3"},
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
        {"sned iso 400", ctl::bad_usage, "\"sned\" is no subcommand; did you mean \"send\"?", nullptr},
        // Nothing is shown so soon, but it has been waited for.
        {"send aperture 22 --wait=0.1", ctl::not_confirmed, "not confirmed: after 0.", nullptr},
        {"send iso 400 --wait=0", ctl::bad_usage, "--wait", nullptr},
        {"send iso 400 --wait=-1", ctl::bad_usage, "--wait", nullptr},
        {"send format sd </dev/null", ctl::bad_usage, "needs --yes", nullptr},
        {"send resetcamera </dev/null", ctl::bad_usage, "needs --yes", nullptr},
        {"send format sd --yes </dev/null", ctl::done, "sent", "format card"},
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
    const Json object = parse_json(stage().ctl("status --json | tr -d '\\n'").output);
    EXPECT_EQ(at(object, "link.state"), "live");
    EXPECT_EQ(at(object, "camera.model"), "Phantom 4 Pro");
    EXPECT_EQ(at(object, "camera.battery_temperature"), "31.2");
    EXPECT_EQ(at(object, "gimbal.recording"), "false");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(object.get(), "words")), 34);
}

// What a page or a logger shows when the remote controller is gone: the last values marked as such, then that
// there is no link.
TEST(CtlAlone, WatchesTheLinkFallSilentAndGoDown) {
    Stage stage;
    std::FILE* const pipe = popen(
        ("exec " CTL_PATH " --board " + stage.file("") + " status --watch --json --timeout 3 2>&1").c_str(),
        "r");
    std::string seen;
    std::string last_line;
    char line[ARDENVUE_STATE_JSON_SIZE + 1];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        last_line = line;
        last_line.pop_back();
        const Json object = parse_json(last_line);
        const std::string state = at(object, "link.state") + " ";
        seen += seen.ends_with(state) ? "" : state;
        if (state == "live ") {
            stage.stop_streaming();
        } else if (object) {
            EXPECT_EQ(at(object, "camera.model"), "Phantom 4 Pro");
        }
    }
    EXPECT_THAT(seen, testing::EndsWith("live silent down "));
    EXPECT_THAT(last_line, HasSubstr("no status arrives"));
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), ctl::silent);
}

// Else they would hold the status port for ever, and no main application could start.
TEST_F(Ctl, EndsWhenItsOutputCannotBeWritten) {
    const struct {
        const char* subcommand;
        const char* output;
        const char* said;
    } cases[] = {
        {"status --watch", ">/dev/full", "No space left on device"},
        {"monitor --lines", ">/dev/full", "No space left on device"},
        {"send iso 400", ">/dev/full", "No space left on device"},
        {"status --watch", "| true", ""},
        {"monitor --lines", "| true", ""},
    };
    for (const auto& c : cases) {
        const std::string code = stage().file("code");
        const Result result =
            run("/bin/sh", std::string{"-c '{ timeout 30 " CTL_PATH " --board "} + stage().file("") + " " +
                               c.subcommand + (c.output[0] == '|' ? "" : c.output) + "; echo $? >" + code +
                               "; }" + (c.output[0] == '|' ? c.output : "") + "' 2>&1");
        const Bytes written = contents(code);
        EXPECT_EQ(std::string(written.begin(), written.end()), "2\n") << c.subcommand << c.output;
        EXPECT_TRUE(*c.said == 0 ? result.output.empty() : result.output.find(c.said) != std::string::npos)
            << c.subcommand << c.output << '\n'
            << result.output;
    }
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
    const auto start = std::chrono::steady_clock::now();
    // As many seconds as it takes until there are some frames in it.
    for (int seconds = 2; seconds <= 32 && (!fs::exists(file) || fs::file_size(file) < 50'000);
         seconds *= 2) {
        const Result result =
            stage().ctl("capture --timeout 20 --seconds " + std::to_string(seconds) + " " + file);
        EXPECT_EQ(result.code, ctl::done) << result.output;
    }
    const auto took = std::chrono::steady_clock::now() - start;
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
    EXPECT_LE(last, took);

    EXPECT_GE(payloads, 10);
    EXPECT_TRUE(stage().streams(video));
}

TEST_F(Ctl, TheExamplesOfTheDocumentationWork) {
    const Result commander = run(EXAMPLE_COMMANDER, std::to_string(stage().port()) + " antiflicker 60");
    EXPECT_EQ(commander.code, 0);
    EXPECT_THAT(commander.output,
                testing::MatchesRegex("Phantom 4 Pro, battery at [0-9]+ %\nthe camera's state shows it\n"));
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
    EXPECT_EQ(number("ring", "last_number") - number("ring", "first_number") + 1,
              number("ring", "frames") + number("ring", "missed"));
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

// Nothing streams, or something is not there: each has its exit code.
TEST(CtlAlone, SaysWhatIsMissing) {
    Service service;
    const std::string port = std::to_string(service.main_application().port());
    const std::string board = service.board().directory();
    const std::string file = board + "/cwd/file";
    std::ofstream{file} << "not empty";
    const std::string here = " --run-dir " + board + "/run --ring " +
                             service.board().shm_name(ardenvue::frame_ring_name) + " --relay-port ";
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
        {"status --json --timeout 0.2 --port " + free_port, ctl::silent,
         R"("link":{"state":"down","service":null,)"},
        {"send shot --timeout 0.2 --port " + free_port, ctl::silent, "no status arrives"},
        {"monitor --lines --seconds 0.2 --port " + free_port, ctl::silent, ""},
        {"video --seconds 0.2 -o /dev/null" + here + "1", ctl::silent, "0 frames, 0 bytes"},
        {"video --ring /ardenvue-no-such-ring", ctl::unusable, "there is none"},
        {"capture --timeout 0.2 " + file + here, ctl::silent, "the relay sends nothing"},
        {"inject --timeout 0.2 " + file + here, ctl::silent, "the relay sends nothing"},
        {"inject " + file + ".absent" + here + "1", ctl::bad_usage, "does not exist"},
        {"capture --relay-port 1 " + file, ctl::unusable, "Connection refused"},
        {"capture " + board + "/no/such/place" + here + "1", ctl::unusable, "can't write"},
        {"--board " + board + " status", ctl::bad_usage, "no simulated board"},
        {"--help", ctl::done, "Exit codes:"},
        {"send shot --to localhost:1", ctl::bad_usage, "takes an IPv4 address"},
        {"--version", ctl::done, "ardenvue-ctl "},
        {"send --help", ctl::done, "focus point X Y"},
    };
    for (const auto& c : cases) {
        Result result;
        do {  // without a remote controller the service ends itself after a while: then once more
            if (service.board().wait_for_end(0ms)) {
                service.start();
            }
            const std::string relay = std::to_string(service.board().relay_port(patience).value_or(0));
            result = run_ctl(c.arguments + (c.arguments.ends_with("--relay-port ") ? relay : ""));
        } while (service.board().wait_for_end(0ms));
        EXPECT_EQ(result.code, c.code) << c.arguments << '\n' << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.arguments;
    }
}

TEST(CtlAlone, ComparesWhatWasSentWithWhatArrived) {
    const std::string sent = testing::TempDir() + "sent." + std::to_string(getpid());
    const std::string seen = testing::TempDir() + "seen." + std::to_string(getpid());
    std::ofstream{seen} << R"({"ring":{"frames":450,"bytes":2395375,"digest":"468ed479978ff200"},)"
                           R"("script":{"commands":2,"confirmed":2},"picture_size":"1920x1080"})";
    const std::string account = "VIDEO_FRAMES=450\nVIDEO_BYTES=2395375\nVIDEO_DIGEST=468ed479978ff200\n";
    const struct {
        std::string report;
        const char* size;
        int code;
        const char* said;
    } cases[] = {
        {"RESULT=well\n" + account, "1920x1080", ctl::done, "468ed479978ff200   same\n"},
        {"RESULT=well\n" + account, "1280x720", ctl::different, "1920x1080   DIFFERENT\n"},
        {"RESULT=well\n" + account + "VIDEO_BYTES=2395376\n", "1920x1080", ctl::different, "DIFFERENT\n"},
        {"RESULT=problems\n" + account + "PROBLEM=a=b\n", "1920x1080", ctl::different, "complains: a=b\n"},
        {"", "1920x1080", ctl::unusable, "is no report"},
    };
    const std::string files = sent + " " + seen + " --picture-size ";
    for (const auto& c : cases) {
        std::ofstream{sent} << c.report;
        const Result result = run_ctl("account " + files + c.size);
        EXPECT_EQ(result.code, c.code) << c.report;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.report;
    }
    fs::remove(sent);
    fs::remove(seen);
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
