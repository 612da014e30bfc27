// What arrives on the status port, from the service and from anybody else.
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "ctl/reports.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// A whole line, as the service sends it.
const std::string line =
    "\x07"
    "camera_detected=1,camera_model=Phantom 4 Pro,camera_mode=video,sd=15.0G,shots_left=1234,"
    "rec_time_left=00:43:11,rec_time=01:02:05,voltage=-1,battery_level=87,battery_temp=25.3,shot_mode=JPG+"
    "RAW,"
    "resolution=3840x2160,framerate=30,format=3840x2160@30,ae=1,aperture=2.8,shutter=1/"
    "500,shutter_set=2.5\",iso=400,"
    "iso_set=auto,ev=+0.3,image_mode=manual,color_mode=black "
    "white,wb=custom,wb_temp=5600,ratio=16:9,sensor=0,"
    "video_std=NTSC,antiflicker=50 Hz,histogram=1,pl_state=,pl_id=0,pl_dur=,pl_time=,";

ctl::Report parse(const std::string& text) {
    const Bytes bytes{text.begin(), text.end()};
    return ctl::parse_report(bytes);
}

TEST(CtlReports, AStatusLineIsTakenApart) {
    const auto report = parse(line);
    const auto* parsed = std::get_if<ctl::StatusLine>(&report);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(parsed->pairs.size(), 34u);
    EXPECT_EQ(parsed->value("camera_model"), "Phantom 4 Pro");
    EXPECT_EQ(parsed->value("shutter_set"), "2.5\"");
    EXPECT_EQ(parsed->value("format"), "3840x2160@30");
    EXPECT_EQ(parsed->value("pl_time"), "");
    EXPECT_EQ(parsed->value("no such key"), "");
}

TEST(CtlReports, BeforeAnyPushTheLineIsWholeToo) {
    const auto report = parse(
        "\x07"
        "camera_detected=0,camera_model=,camera_mode=,sd=,shots_left=0,rec_time_left=,rec_time=,voltage=0,"
        "battery_level=0,battery_temp=0.0,shot_mode=,resolution=,framerate=,format=@,ae=0,aperture=,shutter=,"
        "shutter_set=,iso=0,iso_set=,ev=,image_mode=,color_mode=,wb=,wb_temp=0,ratio=,sensor=0,video_std=,"
        "antiflicker=,histogram=0,pl_state=,pl_id=0,pl_dur=,pl_time=,");
    EXPECT_TRUE(std::holds_alternative<ctl::StatusLine>(report));
}

TEST(CtlReports, ALaterServiceMayReportMore) {
    const auto report = parse(line + "new_key=5,");
    const auto* parsed = std::get_if<ctl::StatusLine>(&report);
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(parsed->value("new_key"), "5");
}

TEST(CtlReports, ALineThatIsCutShortIsNone) {
    for (std::size_t size = 0; size < line.size(); ++size) {
        EXPECT_TRUE(std::holds_alternative<std::monostate>(parse(line.substr(0, size)))) << size;
    }
}

TEST(CtlReports, WhatTheServiceNeverSendsIsRefused) {
    const auto with = [](const std::string& old_text, const std::string& new_text) {
        std::string changed = line;
        changed.replace(changed.find(old_text), old_text.size(), new_text);
        return changed;
    };
    const std::string cases[] = {
        with("Phantom", "\x1B[2J"),  // would clear the terminal
        with("Phantom", std::string(1, '\0')),
        with("Phantom", "\xC3\xA9"),
        with("iso=400", "iso400"),
        with("iso=400", "=400"),
        with(",wb=", ",white="),
        std::string{"\x08"}.append(line.substr(1)),
        std::string(5'000, '\x07'),
        std::string{"\x07"}.append(1'000, ','),
        std::string{"\x07"}.append(1'000, '='),
    };
    for (const std::string& text : cases) {
        EXPECT_TRUE(std::holds_alternative<std::monostate>(parse(text))) << text.substr(0, 60);
    }
}

TEST(CtlReports, TheGimbalAndFocusRecordIsDecoded) {
    const Bytes record = {0x06, 0x00, 0x01, 0x4C, 0xFF, 0x10, 0x27, 0x00, 0x80, 0x80, 0x11, 0x22, 0x01, 0x86,
                          0x00, 0xE8, 0x03, 0x49, 0x01, 0xFA, 0x00, 0xEE, 0x02, 0x33, 0x44, 0x00, 0x00, 0x00};
    const auto report = ctl::parse_report(record);
    const auto* decoded = std::get_if<ctl::GimbalFocus>(&report);
    ASSERT_NE(decoded, nullptr);
    EXPECT_TRUE(decoded->orientation_lock);
    EXPECT_THAT(decoded->attitude, testing::ElementsAre(-180, 10'000, -32'768));
    EXPECT_TRUE(decoded->recording);
    EXPECT_TRUE(decoded->focus_valid);
    EXPECT_EQ(decoded->focus_mode_text(), "AFC");
    EXPECT_EQ(decoded->focus_max, 1'000);
    EXPECT_EQ(decoded->focus_position, 329);
    EXPECT_DOUBLE_EQ(decoded->focus_point_x, 0.25);
    EXPECT_DOUBLE_EQ(decoded->focus_point_y, 0.75);

    for (const int flags : {0x00, 0x40, 0xC0, 0x3F}) {
        Bytes idle = record;
        idle[9] = static_cast<std::uint8_t>(flags);
        EXPECT_FALSE(std::get<ctl::GimbalFocus>(ctl::parse_report(idle)).recording) << flags;
    }
    for (const std::size_t size : {1u, 2u, 27u, 29u, 66u}) {
        Bytes other = record;
        other.resize(size);
        EXPECT_TRUE(std::holds_alternative<std::monostate>(ctl::parse_report(other))) << size;
    }
}

TEST(CtlReports, TheHistogramIsTakenInOrder) {
    Bytes record = {0x06, 0x01};
    for (int i = 0; i < 64; ++i) {
        record.push_back(static_cast<std::uint8_t>(200 - i));
    }
    const auto report = ctl::parse_report(record);
    const auto* histogram = std::get_if<ctl::Histogram>(&report);
    ASSERT_NE(histogram, nullptr);
    EXPECT_EQ(histogram->bins.front(), 200);
    EXPECT_EQ(histogram->bins.back(), 137);
    record.pop_back();
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ctl::parse_report(record)));
}

// Run under the sanitizers, this finds any read past a datagram.
TEST(CtlReports, SpoiledDatagramsDoNoHarm) {
    std::mt19937 random{20};
    int still_good = 0;
    for (int round = 0; round < 20'000; ++round) {
        Bytes bytes{line.begin(), line.end()};
        bytes.resize(random() % (bytes.size() + 1));
        for (unsigned spoiled = random() % 4; spoiled > 0 && !bytes.empty(); --spoiled) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        still_good += std::holds_alternative<ctl::StatusLine>(ctl::parse_report(bytes)) ? 1 : 0;
    }
    EXPECT_LT(still_good, 200);
}

TEST(CtlReports, OnlyWhatCameSinceIsSeen) {
    using namespace std::chrono_literals;
    const auto start = ctl::Clock::now();
    ctl::CameraView view;
    view.take(parse(line), start);
    view.take(ctl::Histogram{}, start + 1s);
    EXPECT_TRUE(view.since(start - 1ms).line);
    EXPECT_FALSE(view.since(start).line);
    EXPECT_TRUE(view.since(start).histogram);
    EXPECT_FALSE(view.since(start + 1s).histogram);
}

}  // namespace
