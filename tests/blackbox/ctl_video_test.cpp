// Live video as files and pipes, judged by an ordinary player's own tools.
#include "tests/blackbox/ctl_stage.h"

namespace ctl_stage {
namespace {

class CtlVideo : public Ctl {};

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
        run_shell("rm -rf " + bin + " " + stage().file("pictures") + "; mkdir " + bin + " " +
                  stage().file("pictures") + "; " + c.made_by + " " + bin + "/" + c.decoder +
                  "; echo before >" + file);
        const Result result = run("/usr/bin/env", "PATH=" + bin + " " CTL_PATH " --board " +
                                                      stage().file("") + " snapshot " + file + " 2>&1");
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

}  // namespace
}  // namespace ctl_stage
