// What the main application is told, at the edges that no push from a camera reaches.
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "platform/relaxed.h"
#include "state/status_line.h"
#include "state/status_sender.h"

namespace {

std::string line_of(const TelemetryState& telemetry) {
    char line[status_line_capacity];
    const std::size_t length = write_status_line(telemetry, line);
    EXPECT_LT(length, status_line_capacity);
    EXPECT_EQ(length, std::strlen(line));
    return {line, length};
}

template <std::size_t capacity>
void fill(char (&field)[capacity], char filler) {
    std::memset(field, filler, capacity);  // no terminator, as if read in the middle of a rewrite
}

TEST(StatusLine, BeforeAnyPushEveryPairStandsInItsPlace) {
    EXPECT_EQ(line_of({}),
              "\x07"
              "camera_detected=0,camera_model=,camera_mode=,sd=,shots_left=0,rec_time_left=,rec_time=,"
              "voltage=0,battery_level=0,battery_temp=0.0,shot_mode=,resolution=,framerate=,format=@,ae=0,"
              "aperture=,shutter=,shutter_set=,iso=0,iso_set=,ev=,image_mode=,color_mode=,wb=,wb_temp=0,"
              "ratio=,sensor=0,video_std=,antiflicker=,histogram=0,pl_state=,pl_id=0,pl_dur=,pl_time=,");
}

// Every field at its widest, every text full to the last byte: the line is whole and inside its buffer.
TEST(StatusLine, TheLongestLineFitsItsBuffer) {
    TelemetryState t{};
    t.camera_detected = t.ae_flag = t.sensor = 255;
    fill(t.camera_model, 'a');
    fill(t.camera_mode_text, 'b');
    fill(t.sd_text, 'c');
    t.shots_left = 0x80000000;
    fill(t.record_left_text, 'd');
    fill(t.record_time_text, 'e');
    t.voltage = -32768;
    t.battery_level = -128;
    t.battery_temperature = 65535;
    fill(t.photo_format_text, 'f');
    fill(t.resolution_text, 'g');
    fill(t.frame_rate_text, 'h');
    fill(t.aperture_text, 'i');
    fill(t.shutter_text, 'j');
    fill(t.shutter_set_text, 'k');
    t.iso = t.playback_id = 65535;
    fill(t.iso_set_text, 'l');
    fill(t.ev_text, 'm');
    fill(t.exposure_mode_text, 'n');
    fill(t.color_mode_text, 'o');
    fill(t.white_balance_text, 'p');
    t.wb_temperature = std::numeric_limits<float>::lowest();
    fill(t.aspect_text, 'q');
    fill(t.video_standard_text, 'r');
    fill(t.antiflicker_text, 's');
    t.histogram_time_ms = 1;
    fill(t.playback_state_text, 't');
    fill(t.playback_duration_text, 'u');
    fill(t.playback_time_text, 'v');
    EXPECT_EQ(
        line_of(t),
        "\x07"
        "camera_detected=255,camera_model=aaaaaaaaaaaaaaaaaaa,camera_mode=bbbbbbbbb,"
        "sd=ccccccccccccccccccc,shots_left=-2147483648,rec_time_left=ddddddddddddddddddd,"
        "rec_time=eeeeeeeeeeeeeeeeeee,voltage=-32768,battery_level=-128,battery_temp=6553.5,"
        "shot_mode=fffffffff,resolution=ggggggggg,framerate=hhhhhhhhh,format=ggggggggg@hhhhhhhhh,ae=255,"
        "aperture=iiiiiiiiiii,shutter=jjjjjjjjjjj,shutter_set=kkkkkkkkk,iso=65535,iso_set=llllllllll,"
        "ev=mmmmmmmmm,image_mode=nnnnnnnnn,color_mode=ooooooooooooooooooo,wb=ppppppppppppppppppp,"
        "wb_temp=-340282346638528859811704183484516925440,ratio=qqqqqqqqq,sensor=255,"
        "video_std=rrrrrrrrr,antiflicker=sssssssssssssssssssssssss,histogram=1,"
        "pl_state=ttttttttttttttttttt,pl_id=65535,pl_dur=uuuuuuuuuuuuuuuuuuuuuuu,"
        "pl_time=vvvvvvvvvvvvvvvvvvv,");
}

// The decoder rewrites its texts while the line is built: any mixture is fine, a torn text is not.
TEST(StatusLine, StandsWhileTheDecoderWrites) {
    static TelemetryState telemetry{};
    std::atomic<bool> done{false};
    std::thread decoder{[&done] {
        while (!done) {
            for (const char* model : {"Phantom 4 Pro V2.0", "", "Mavic Pro", "Unknown device id 42"}) {
                store_text(telemetry.camera_model, model);
                store_relaxed(telemetry.histogram_time_ms, 1);
            }
        }
    }};
    for (int i = 0; i < 500; ++i) {
        const std::string line = line_of(telemetry);
        ASSERT_THAT(line,
                    testing::MatchesRegex("\x07"
                                          "camera_detected=0,camera_model=[^,]*,camera_mode=,.*pl_time=,"));
    }
    done = true;
    decoder.join();
}

TEST(GimbalFocusRecord, CoordinatesSaturateBeforeTheyAreCut) {
    struct Case {
        float coordinate;
        int low;
        int high;
    };
    const float huge = std::numeric_limits<float>::max();
    const float infinity = std::numeric_limits<float>::infinity();
    for (const Case& c :
         {Case{0.9999F, 0xE7, 0x03}, Case{-0.5F, 0, 0}, Case{-0.0F, 0, 0}, Case{66.0F, 0xD0, 0x01},
          Case{4294967.0F, 0x00, 0xFF}, Case{5e6F, 0xFF, 0xFF}, Case{huge, 0xFF, 0xFF},
          Case{infinity, 0xFF, 0xFF}, Case{-infinity, 0, 0}, Case{std::nanf(""), 0, 0}}) {
        TelemetryState t{};
        t.focus_point_x = c.coordinate;
        const auto record = gimbal_focus_record(t);
        EXPECT_THAT(record.focus_point_x, testing::ElementsAre(c.low, c.high)) << c.coordinate;
    }
}

}  // namespace
