// Live video as files and pipes, judged by an ordinary player's own tools.
#include <cstring>

#include "tests/blackbox/ctl_stage.h"

namespace ctl_stage {
namespace {

class CtlVideo : public Ctl {};

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

std::string run_shell(const std::string& line) {
    return run("/bin/sh", "-c '" + line + " 2>&1'").output;
}

TEST_F(CtlVideo, HasEveryPictureAndTrueTimesInEveryFormat) {
    for (const char* format : {"mp4", "ts"}) {
        const std::string file = stage().file(std::string{"live."} + format);
        const Result result =
            stage().ctl(std::string{"video --frames 150 --format "} + format + " -o " + file);
        EXPECT_EQ(result.code, ctl::done) << result.output;
        EXPECT_EQ(run_shell("ffprobe -v error -count_frames -show_entries stream=width,height,nb_read_frames "
                            "-of csv=p=0 " +
                            file + " | head -n 1"),
                  std::string{"1280,720,150\n"})
            << format;
        // The clip is sent at 30 pictures a second; what the ring held came at once.
        const double last = std::stod(
            run_shell("ffprobe -v error -show_entries packet=pts_time -of csv=p=0 " + file + " | tail -n 1"));
        EXPECT_GT(last, 2) << format;
    }
}

// Into a player without a window, which tells of each picture when it is about to be shown.
constexpr const char* to_player =
    " | SDL_VIDEODRIVER=dummy SDL_AUDIODRIVER=dummy"
    " timeout 60 ffplay -hide_banner -nostats -autoexit -vf showinfo -i - 2>&1 | ";

// The stream claims half of its rate, or none, which players take for 25 a second: at that pace its three
// seconds last for six or more.
TEST_F(CtlVideo, APlayerBeginsAtOnceAndKeepsUpWhateverTheStreamClaims) {
    for (const std::string claims : {"30", "none"}) {
        const std::string clip = stage().file("claims-" + claims + ".h264");
        run_shell(joined({NUMBERED_CLIP, " --pictures 300 --claims ", claims, " ", clip}));
        const Stage fast{clip, 60};
        const std::string live = CTL_PATH " --board " + fast.file("") + " video --format mp4 --frames ";

        // Three quarters of a second, and the pipe stays open: a player that wants more shows nothing.
        const std::string hold = fast.file("hold");
        EXPECT_THAT(run_shell(joined({"mkfifo ", hold, "; { ", live, "45; cat ", hold, "; }", to_player,
                                      "{ timeout 30 grep -m 1 -o pts_time:[0-9.]*; : >", hold,
                                      "; cat >/dev/null; }"})),
                    HasSubstr("pts_time:0\n"))
            << claims;

        const std::string command = live + "180" + to_player + "grep --line-buffered pts_time";
        std::FILE* const pipe = popen(command.c_str(), "r");
        std::vector<std::chrono::steady_clock::time_point> shown;
        double last = 0;  // seconds, by the file
        for (char line[1024]; std::fgets(line, sizeof line, pipe) != nullptr;) {
            shown.push_back(std::chrono::steady_clock::now());
            last = std::atof(std::strstr(line, "pts_time:") + std::strlen("pts_time:"));
        }
        pclose(pipe);
        ASSERT_FALSE(shown.empty()) << claims;
        EXPECT_LT(shown.back() - shown.front(), 5500ms) << claims;
        EXPECT_GT(last, 2.3) << claims;  // the first half of a second may have been in the ring
    }
}

// With one decoder, the other, none, and one that dies when half of the picture is written.
TEST_F(CtlVideo, TakesASnapshotOrLeavesTheFileAlone) {
    const std::string bin = stage().file("bin");
    const struct {
        const char* decoder;
        const char* made_by;
        const char* kind;
        int code;
        const char* said;
        const char* is;
    } cases[] = {
        {"ffmpeg", "ln -s /usr/bin/ffmpeg", "jpg", ctl::done, "", "mjpeg,1280,720\n"},
        {"ffmpeg", "ln -s /usr/bin/ffmpeg", "png", ctl::done, "", "png,1280,720\n"},
        {"gst-launch-1.0", "ln -s /usr/bin/gst-launch-1.0", "jpg", ctl::done, "", "mjpeg,1280,720\n"},
        {"gst-launch-1.0", "ln -s /usr/bin/gst-launch-1.0", "png", ctl::done, "", "png,1280,720\n"},
        {"none", "touch", "png", ctl::not_installed, "neither ffmpeg nor gst-launch-1.0", nullptr},
        {"ffmpeg", "printf \"#!/bin/sh\\necho half; exit 1\" | install -m 755 /dev/stdin", "png",
         ctl::unusable, "ffmpeg could not decode", nullptr},
        {"none", "touch", "gif", ctl::bad_usage, "ends in .jpg or .png", nullptr},
    };
    for (const auto& c : cases) {
        const std::string file = stage().file("pictures/snap." + std::string{c.kind});
        fs::remove_all(bin);
        fs::remove_all(stage().file("pictures"));
        fs::create_directory(bin);
        fs::create_directory(stage().file("pictures"));
        std::ofstream{file} << "before\n";
        run_shell(joined({c.made_by, " ", bin, "/", c.decoder}));
        const Result result = run("/usr/bin/env", joined({"PATH=", bin, " ", CTL_PATH, " --board ",
                                                          stage().file(""), " snapshot ", file, " 2>&1"}));
        EXPECT_EQ(result.code, c.code) << c.decoder << result.output;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.decoder;
        EXPECT_EQ(std::distance(fs::directory_iterator{stage().file("pictures")}, {}), 1) << c.decoder;
        EXPECT_EQ(run_shell(c.is == nullptr ? "cat " + file
                                            : "ffprobe -v error -show_entries stream=codec_name,width,height "
                                              "-of csv=p=0 " +
                                                  file),
                  c.is == nullptr ? "before\n" : c.is)
            << c.decoder;
    }
}

// A capture with uneven times, a push with and without a right sum, and a command; then cut off, and plain.
TEST_F(CtlVideo, TakesACaptureApart) {
    const std::string file = stage().file("made.cap");
    const std::string base = stage().file("taken");
    const Bytes attitude = sim::encode_packet({4, 2, 0x1234, 0, 4, 5, Bytes(18)});
    Bytes damaged = attitude;
    damaged.back() ^= 1;
    const Bytes record_start = sim::encode_packet({2, 1, 0, 0x40, 2, 2, {1}});
    Bytes video;
    {
        formats::CaptureWriter capture;
        ASSERT_TRUE(capture.open(file));
        const int times_ms[] = {0, 200, 250};
        for (std::size_t i = 0; i < std::size(times_ms); ++i) {
            for (const Bytes& payload : stage().clip()[i].payloads) {
                capture.write(times_ms[i] * 1ms, formats::Direction::from_remote,
                              sim::encode_frame(formats::FrameType::video, payload));
                video.insert(video.end(), payload.begin(), payload.end());
            }
        }
        for (const Bytes& packet : {attitude, damaged}) {
            capture.write(1'500'001us, formats::Direction::from_remote,
                          sim::encode_frame(formats::FrameType::packets, packet));
        }
        capture.write(2s, formats::Direction::to_remote, record_start);
    }
    const Result apart =
        run(CTL_PATH, "decode " + file + " --video " + base + ".h264 --packets - 2>/dev/null");
    EXPECT_EQ(run_ctl("decode " + file + " --video " + base + ".mp4").code, ctl::done);
    EXPECT_EQ(apart.code, ctl::done);
    EXPECT_THAT(
        apart.output,
        testing::MatchesRegex(
            R"(\{"time":1\.500001,"direction":"received","what":"gimbal attitude","sender":4,"receiver":2,)"
            R"("sequence":4660,"type":0,"set":4,"id":5,"bytes":"55 1F 04 [^"]*"\}.)"
            R"(\{"time":1\.500001,"direction":null,"what":"damaged","sender":null,"receiver":null,)"
            R"("sequence":null,"type":null,"set":null,"id":null,"bytes":"55 1F 04 [^"]*"\}.)"
            R"(\{"time":2\.000000,"direction":"sent","what":"record start","sender":2,"receiver":1,)"
            R"("sequence":0,"type":64,"set":2,"id":2,"bytes":"55 0E 04 66 02 01 00 00 40 02 02 01 08 44"\}.)"));
    EXPECT_EQ(contents(base + ".h264"), video);
    EXPECT_EQ(run_shell("ffprobe -v error -show_entries packet=pts_time -of csv=p=0 " + base + ".mp4"),
              "0.000000\n0.200000\n0.250000\n");

    fs::resize_file(file, fs::file_size(file) - 1);
    const struct {
        std::string arguments;
        int code;
        const char* said;
    } cases[] = {
        {file, ctl::unusable, "1 packets received, 0 sent, 31 damaged bytes"},
        {file, ctl::unusable, "is damaged or cut off behind that"},
        {file + " --video " + base + ".avi", ctl::bad_usage, "ends in .h264, .mp4 or .ts"},
        {file + " --video - --packets -", ctl::bad_usage, "can't both go to"},
        {file + " --packets /dev/full", ctl::unusable, "can't write /dev/full: No space left"},
        {base + ".h264 --video " + base + ".mp4", ctl::bad_usage, "without times can't become"},
    };
    for (const auto& c : cases) {
        const Result result = run_ctl("decode " + c.arguments);
        EXPECT_EQ(result.code, c.code) << c.arguments;
        EXPECT_THAT(result.output, HasSubstr(c.said)) << c.arguments;
    }
}

TEST_F(CtlVideo, SaysWhyNothingComes) {
    const Result terminal = run("/usr/bin/script", "-qec '" CTL_PATH " video' /dev/null 2>&1");
    EXPECT_EQ(terminal.code, ctl::bad_usage) << terminal.output;
    EXPECT_THAT(terminal.output, HasSubstr("a terminal can't show video"));

    Service without_cable;
    const std::optional<std::uint16_t> relay = without_cable.board().relay_port(patience);
    ASSERT_TRUE(relay);
    const std::string ring = "--ring " + without_cable.board().shm_name(ardenvue::frame_ring_name);
    for (const auto& [port, reason] : {std::pair{*relay, "the remote controller sends no video"},
                                       std::pair{std::uint16_t{1}, "no service is running"}}) {
        const Result result =
            run_ctl(ring + " --relay-port " + std::to_string(port) + " video --seconds 3 -o /dev/null");
        EXPECT_EQ(result.code, ctl::silent);
        EXPECT_THAT(result.output, HasSubstr(reason));
    }
}

// Pictures that a player finds, whatever the end of the file looks like.
int pictures_in(const std::string& file) {
    return std::atoi(
        run_shell("ffprobe -v quiet -count_frames -show_entries stream=nb_read_frames -of csv=p=0 " + file)
            .c_str());
}

std::vector<std::string> lines_of(const std::string& file) {
    std::ifstream stream{file};
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

TEST_F(CtlVideo, IsRecordedInFilesWithTheStateBesideThem) {
    const std::string stem = stage().file("flight");
    const Result result = stage().ctl("record --seconds 6 --split 0.05 " + stem + ".mp4");
    EXPECT_EQ(result.code, ctl::done) << result.output;
    const int pictures = pictures_in(stem + ".mp4") + pictures_in(stem + "-2.mp4") +
                         (fs::exists(stem + "-3.mp4") ? pictures_in(stem + "-3.mp4") : 0);
    EXPECT_GT(pictures, 60);
    EXPECT_THAT(result.output, HasSubstr(" " + std::to_string(pictures) + " pictures"));
    for (const char* part : {".jsonl", "-2.jsonl"}) {
        const std::vector<std::string> lines = lines_of(stem + part);
        ASSERT_GT(lines.size(), 5U);
        EXPECT_THAT(lines[0], testing::StartsWith("{\"format\":1,\"video_began\":{\"monotonic\":"));
        EXPECT_THAT(lines.back(), HasSubstr("\"state\":\"live\""));
        EXPECT_THAT(lines.back(), testing::EndsWith("}"));
    }
    const Result again = stage().ctl("record --seconds 1 " + stem + ".mp4");
    EXPECT_EQ(again.code, ctl::unusable);
    EXPECT_THAT(again.output, HasSubstr("is there already"));
    EXPECT_EQ(stage().ctl("record --keep-free 1e12 " + stage().file("none.mp4")).code, ctl::unusable);
    EXPECT_FALSE(fs::exists(stage().file("none.mp4")));
    EXPECT_THAT(stage().ctl("record /no/such/folder/none.mp4").output,
                HasSubstr("No such file or directory"));
}

TEST_F(CtlVideo, ARecordingPlaysToWhereItWasCutOff) {
    // A disk that is full after 200 kB.
    const std::string full = stage().file("full.mp4");
    const Result result =
        run("/bin/sh", "-c 'trap \"\" XFSZ; ulimit -f 400; exec \"" CTL_PATH "\" --board " +
                           fs::path{full}.parent_path().string() + " record --seconds 60 " + full + " 2>&1'");
    EXPECT_EQ(result.code, ctl::unusable) << result.output;
    EXPECT_THAT(result.output, HasSubstr("can't write " + full));
    EXPECT_THAT(result.output, HasSubstr(" " + std::to_string(pictures_in(full)) + " pictures"));
    EXPECT_GT(pictures_in(full), 20);

    const std::string killed = stage().file("killed.mp4");
    const std::string board = fs::path{killed}.parent_path().string();
    const pid_t recorder = fork();
    if (recorder == 0) {
        execl(CTL_PATH, CTL_PATH, "--board", board.c_str(), "record", killed.c_str(), nullptr);
        _exit(127);
    }
    EXPECT_TRUE(eventually([&] { return fs::exists(killed) && fs::file_size(killed) > 300'000; }));
    kill(recorder, SIGKILL);
    waitpid(recorder, nullptr, 0);
    const auto size = fs::file_size(killed);
    const int pictures = pictures_in(killed);
    EXPECT_GT(pictures, 50) << size;
    // What is behind the last whole picture is less than a picture of the clip.
    const std::string last =
        run_shell("ffprobe -v quiet -show_entries packet=pos,size -of csv=p=0 " + killed + " | tail -n 1");
    const auto comma = last.find(',');
    ASSERT_NE(comma, std::string::npos) << last;
    EXPECT_LT(size - std::stoul(last) - std::stoul(last.substr(comma + 1)), 60'000U) << last;
}

}  // namespace
}  // namespace ctl_stage
