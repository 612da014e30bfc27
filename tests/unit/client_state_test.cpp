// What arrives on the status port, from the service and from anybody else, as the library gives it.
#include <cmath>
#include <cstring>
#include <string>

#include <cjson/cJSON.h>

#include "tests/unit/client_link.h"

namespace {

using namespace client_link;

ArdenvueStatus status_of(const std::string& line) {
    const Link link = unbound_link();
    EXPECT_EQ(take(link, line), ARDENVUE_STATUS_LINE);
    ArdenvueStatus status;
    EXPECT_EQ(ardenvue_link_status(link.get(), &status), 0);
    return status;
}

TEST(ClientState, AStatusLineIsGivenInWordsAndAsValues) {
    const Link link = unbound_link();
    ArdenvueStatus status;
    EXPECT_EQ(ardenvue_link_status(link.get(), &status), ARDENVUE_ERROR_NONE_YET);
    EXPECT_EQ(ardenvue_link_report_age(link.get(), ARDENVUE_STATUS_LINE), -1);
    EXPECT_STREQ(ardenvue_link_text(link.get(), "iso"), "");
    // A later service may report more.
    ASSERT_EQ(take(link, line_with() + "new_key=5,"), ARDENVUE_STATUS_LINE);
    EXPECT_STREQ(ardenvue_link_text(link.get(), "camera_model"), "Phantom 4 Pro");
    EXPECT_STREQ(ardenvue_link_text(link.get(), "shutter_set"), "2.5\"");
    EXPECT_STREQ(ardenvue_link_text(link.get(), "pl_time"), "");
    EXPECT_STREQ(ardenvue_link_text(link.get(), "new_key"), "5");
    EXPECT_STREQ(ardenvue_link_text(link.get(), "no such key"), "");
    const char* key = nullptr;
    const char* value = nullptr;
    ASSERT_EQ(ardenvue_link_pair(link.get(), 34, &key, &value), 0);
    EXPECT_STREQ(key, "new_key");
    EXPECT_EQ(ardenvue_link_pair(link.get(), 35, &key, &value), ARDENVUE_ERROR_ARGUMENT);

    ASSERT_EQ(ardenvue_link_status(link.get(), &status), 0);
    EXPECT_GT(status.time_ns, 0);
    EXPECT_TRUE(status.camera_detected && status.ae && status.histogram);
    EXPECT_EQ(status.camera_mode, ARDENVUE_MODE_VIDEO);
    EXPECT_DOUBLE_EQ(status.card_gigabytes, 15.0);
    EXPECT_EQ(status.shots_left, 1234);
    EXPECT_EQ(status.recording_seconds_left, 43 * 60 + 11);
    EXPECT_EQ(status.recording_seconds, 3725);
    EXPECT_EQ(status.voltage, -1);
    EXPECT_EQ(status.battery_percent, 87);
    EXPECT_DOUBLE_EQ(status.battery_temperature, 25.3);
    EXPECT_EQ(status.photo_format, ARDENVUE_PHOTO_JPG_RAW);
    EXPECT_EQ(status.photo_ratio, ARDENVUE_RATIO_16_9);
    EXPECT_EQ(status.video_width, 3840);
    EXPECT_EQ(status.video_height, 2160);
    EXPECT_EQ(status.video_rate, 30);
    EXPECT_EQ(status.video_standard, ARDENVUE_STANDARD_NTSC);
    EXPECT_DOUBLE_EQ(status.aperture, 2.8);
    EXPECT_DOUBLE_EQ(status.shutter, 0.002);
    EXPECT_DOUBLE_EQ(status.shutter_set, 2.5);
    EXPECT_EQ(status.iso, 400);
    EXPECT_EQ(status.iso_set, 0);
    EXPECT_DOUBLE_EQ(status.ev, 0.3);
    EXPECT_EQ(status.exposure_program, ARDENVUE_PROGRAM_MANUAL);
    EXPECT_EQ(status.color, ARDENVUE_COLOR_BLACK_WHITE);
    EXPECT_EQ(status.white_balance, ARDENVUE_WB_CUSTOM);
    EXPECT_EQ(status.white_balance_kelvin, 5600);
    EXPECT_EQ(status.antiflicker, ARDENVUE_ANTIFLICKER_50_HZ);
}

TEST(ClientState, WhatIsNotKnownIsNoValue) {
    EXPECT_EQ(status_of(line_with("=video,", "=unknown,")).camera_mode, 0);
    EXPECT_TRUE(std::isnan(status_of(line_with("15.0G", "")).card_gigabytes));
    EXPECT_TRUE(std::isnan(status_of(line_with("1/500", "1/0")).shutter));
    EXPECT_TRUE(std::isnan(status_of(line_with("=2.8", "=")).aperture));
    EXPECT_EQ(status_of(line_with("iso_set=auto", "iso_set=")).iso_set, -1);
    EXPECT_EQ(status_of(line_with("iso_set=auto", "iso_set=1600")).iso_set, 1600);
    EXPECT_EQ(status_of(line_with("resolution=3840x2160", "resolution=")).video_width, -1);
    EXPECT_EQ(status_of(line_with("01:02:05", "")).recording_seconds, -1);
    EXPECT_EQ(status_of(line_with("01:02:05", "-9:02:05")).recording_seconds, -1);
    EXPECT_EQ(status_of(line_with("01:02:05", "123:00:00")).recording_seconds, 123 * 3600);
    EXPECT_EQ(status_of(line_with("5600", std::string(39, '9'))).white_balance_kelvin, 2'147'483'647);
}

TEST(ClientState, ALineThatIsCutShortIsNone) {
    const Link link = unbound_link();
    for (std::size_t size = 0; size < line_with().size(); ++size) {
        EXPECT_EQ(take(link, line_with().substr(0, size)), ARDENVUE_ERROR_DATA) << size;
    }
}

TEST(ClientState, WhatTheServiceNeverSendsIsRefused) {
    const Link link = unbound_link();
    const std::string cases[] = {
        line_with("Phantom", "\x1B[2J"),  // would clear the terminal
        line_with("Phantom", std::string(1, '\0')),
        line_with("Phantom", "\xC3\xA9"),
        line_with("iso=400", "iso400"),
        line_with("iso=400", "=400"),
        line_with(",wb=", ",white="),
        line_with("\x07", "\x08"),
        std::string(5'000, '\x07'),
        std::string{"\x07"}.append(1'000, ','),
        std::string{"\x07"}.append(1'000, '='),
        line_with() + std::string(1'000, 'x') + "=" + std::string(1'000, 'x') + ",",
    };
    for (const std::string& text : cases) {
        EXPECT_EQ(take(link, text), ARDENVUE_ERROR_DATA) << text.substr(0, 60);
    }
    // More keys than any line has.
    std::string many = line_with();
    for (int i = 0; i < 200; ++i) {
        many += "k=,";
    }
    EXPECT_EQ(take(link, many), ARDENVUE_ERROR_DATA);
    ArdenvueLinkTotals totals;
    ardenvue_link_totals(link.get(), &totals);
    EXPECT_EQ(totals.ignored, std::size(cases) + 1);
}

TEST(ClientState, TheGimbalAndFocusRecordIsDecoded) {
    const Link link = unbound_link();
    ArdenvueGimbalFocus decoded;
    EXPECT_EQ(ardenvue_link_gimbal_focus(link.get(), &decoded), ARDENVUE_ERROR_NONE_YET);
    ASSERT_EQ(take(link, gimbal_focus_record()), ARDENVUE_GIMBAL_FOCUS);
    ASSERT_EQ(ardenvue_link_gimbal_focus(link.get(), &decoded), 0);
    EXPECT_TRUE(decoded.orientation_lock && decoded.recording && decoded.focus_reported);
    EXPECT_EQ(decoded.heading, -180);
    EXPECT_EQ(decoded.tilt, 10'000);
    EXPECT_EQ(decoded.roll, -32'768);
    EXPECT_THAT(decoded.camera_flags, testing::ElementsAre(0x80, 0x11, 0x22));
    EXPECT_STREQ(ardenvue_focus_type_text(decoded.focus_type), "AFC");
    EXPECT_STREQ(ardenvue_focus_type_text(ArdenvueFocusType{}), "");
    EXPECT_EQ(decoded.focus_max, 1'000);
    EXPECT_EQ(decoded.focus_position, 329);
    EXPECT_DOUBLE_EQ(decoded.focus_x, 0.25);
    EXPECT_DOUBLE_EQ(decoded.focus_y, 0.75);
    EXPECT_THAT(decoded.focus_aux, testing::ElementsAre(0x33, 0x44));

    for (const int flags : {0x00, 0x40, 0xC0, 0x3F}) {
        std::string idle = gimbal_focus_record();
        idle[9] = static_cast<char>(flags);
        take(link, idle);
        ardenvue_link_gimbal_focus(link.get(), &decoded);
        EXPECT_FALSE(decoded.recording) << flags;
    }
    for (const std::size_t size : {1U, 2U, 27U, 29U, 66U}) {
        std::string other = gimbal_focus_record();
        other.resize(size);
        EXPECT_EQ(take(link, other), ARDENVUE_ERROR_DATA) << size;
    }
}

TEST(ClientState, AHistogramThatStoppedIsGone) {
    const Link link = unbound_link();
    ArdenvueHistogram histogram;
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), ARDENVUE_ERROR_NONE_YET);
    EXPECT_EQ(take(link, histogram_record().substr(1)), ARDENVUE_ERROR_DATA);
    take(link, line_with("histogram=1", "histogram=0"));
    ASSERT_EQ(take(link, histogram_record()), ARDENVUE_HISTOGRAM);
    ASSERT_EQ(ardenvue_link_histogram(link.get(), &histogram), 0);
    EXPECT_EQ(histogram.bins[0], 200);
    EXPECT_EQ(histogram.bins[63], 137);
    take(link, line_with());
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), 0);
    take(link, line_with("histogram=1", "histogram=0"));
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), ARDENVUE_ERROR_NONE_YET);
    take(link, histogram_record());
    while (ardenvue_link_report_age(link.get(), ARDENVUE_HISTOGRAM) <= 1'500'000'000) {
        usleep(50'000);
    }
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), ARDENVUE_ERROR_NONE_YET);
}

// The object without what depends on the moment, and read by a parser that isn't ours.
std::string json_of(const Link& link) {
    char text[ARDENVUE_STATE_JSON_SIZE];
    const int length = ardenvue_state_json(link.get(), text, sizeof text);
    EXPECT_EQ(length, static_cast<int>(std::strlen(text)));
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> parsed{cJSON_ParseWithOpts(text, nullptr, true),
                                                                 cJSON_Delete};
    EXPECT_TRUE(parsed) << text;
    std::string rest = text;
    const std::size_t link_at = rest.find(R"("link")");
    EXPECT_THAT(
        rest.substr(0, link_at),
        testing::MatchesRegex(R"(\{"format":1,"time":"20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:)"
                              R"([0-9]{2}\.[0-9]{3}Z","monotonic":[0-9]+\.[0-9]{3},)"));
    rest.erase(0, link_at);
    const std::string age = R"(age":)";
    for (std::size_t at = 0; (at = rest.find(age, at)) != std::string::npos;) {
        at += age.size();
        const std::size_t end = rest.find_first_not_of("0123456789.", at);
        if (end == at + 5) {  // "0.000", not null
            rest.replace(at, 5, "AGE");
        }
    }
    return rest;
}

TEST(ClientState, TheStateIsOneJsonObject) {
    const Link link = unbound_link();
    EXPECT_EQ(json_of(link), R"("link":{"state":"down","service":null,"restarts":0,"frame_age":null},)"
                             R"("camera":null,"gimbal":null,"focus":null,"histogram":null,"words":null})");

    ardenvue_link_watch_frames(link.get(), "no_such_ring");
    ardenvue_link_saw_frame(link.get(), INT64_MAX);
    // A name that would end its text; a key that comes twice.
    take(link, line_with("Phantom", "\"\\") + "pl_id=7,");
    take(link, histogram_record());
    std::string bins = "200";
    for (int i = 1; i < 64; ++i) {
        bins += "," + std::to_string(200 - i);
    }
    EXPECT_EQ(
        json_of(link),
        R"("link":{"state":"live","service":null,"restarts":0,"frame_age":AGE},)"
        R"("camera":{"age":AGE,"model":"\"\\ 4 Pro","detected":true,"ae":true,"mode":"video",)"
        R"("card_gigabytes":15,"shots_left":1234,"recording_seconds_left":2591,"recording_seconds":3725,)"
        R"("voltage":null,"battery_percent":87,"battery_temperature":25.3,"photo_format":"jpg+raw",)"
        R"("photo_ratio":"16:9","video_width":3840,"video_height":2160,"video_rate":30,)"
        R"("video_standard":"NTSC","aperture":2.8,"shutter":0.002,"shutter_set":2.5,"iso":400,"iso_set":0,)"
        R"("ev":0.3,"exposure_program":"manual","color":"black white","white_balance":"custom",)"
        R"("white_balance_kelvin":5600,"antiflicker":"50","sensor":0,"playback_id":0,"histogram":true},)"
        R"("gimbal":null,"focus":null,"histogram":{"age":AGE,"bins":[)" +
            bins +
            R"(]},"words":{"camera_detected":"1","camera_model":"\"\\ 4 Pro","camera_mode":"video",)"
            R"("sd":"15.0G","shots_left":"1234","rec_time_left":"00:43:11","rec_time":"01:02:05",)"
            R"("voltage":"-1","battery_level":"87","battery_temp":"25.3","shot_mode":"JPG+RAW",)"
            R"("resolution":"3840x2160","framerate":"30","format":"3840x2160@30","ae":"1",)"
            R"("aperture":"2.8","shutter":"1/500","shutter_set":"2.5\"","iso":"400","iso_set":"auto",)"
            R"("ev":"+0.3","image_mode":"manual","color_mode":"black white","wb":"custom",)"
            R"("wb_temp":"5600","ratio":"16:9","sensor":"0","video_std":"NTSC",)"
            R"("antiflicker":"50 Hz","histogram":"1","pl_state":"","pl_id":"0","pl_dur":"","pl_time":""}})");

    take(link, line_with("=2.8", "="));
    take(link, gimbal_focus_record());
    EXPECT_THAT(
        json_of(link),
        testing::AllOf(testing::HasSubstr(R"(,"aperture":null,)"),
                       testing::HasSubstr(R"("gimbal":{"age":AGE,"heading":-180,"tilt":10000,)"
                                          R"("roll":-32768,"orientation_lock":true,"recording":true},)"
                                          R"("focus":{"age":AGE,"type":"afc","mode":134,"max":1000,)"
                                          R"("position":329,"x":0.25,"y":0.75},)")));
    std::string without_focus = gimbal_focus_record();
    without_focus[12] = 0;
    take(link, without_focus);
    EXPECT_THAT(json_of(link), testing::HasSubstr(R"(,"focus":null,)"));
}

TEST(ClientState, AStateThatDoesNotFitIsCutAndItsLengthTold) {
    const Link link = unbound_link();
    // The longest there can be: each byte of the texts needs a backslash.
    std::string line = line_with("Phantom", std::string(1'500, '\\'));
    take(link, line);
    take(link, gimbal_focus_record());
    take(link, histogram_record());
    const int whole = ardenvue_state_json(link.get(), nullptr, 0);
    ASSERT_LT(whole, ARDENVUE_STATE_JSON_SIZE);
    for (const int room : {1, 2, 100, whole, whole + 1}) {
        const auto size = static_cast<std::size_t>(room);
        std::vector<char> text(size, 'x');
        EXPECT_EQ(ardenvue_state_json(link.get(), text.data(), size), whole);
        EXPECT_EQ(strnlen(text.data(), size), size - 1);
    }
}

}  // namespace
