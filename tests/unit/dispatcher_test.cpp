// What the dispatcher makes of datagrams that no honest main application sends. The packets of honest
// commands are checked on the simulated board.
#include "commands/dispatcher.h"

#include <span>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "commands/camera_video.h"
#include "io/usb_link.h"

namespace {
std::vector<std::string> sent;  // payloads in hexadecimal

std::string payload_of(std::span<const std::uint8_t> packet) {
    std::string text;
    for (const std::uint8_t byte : packet.subspan(10, packet.size() - 12)) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ", byte);
        text += digits;
    }
    return text;
}
}  // namespace

// In place of link/usb_link: the cable ends here.
int usb_write_locked(std::span<const std::uint8_t> packet) {
    sent.push_back(payload_of(packet));
    return static_cast<int>(packet.size());
}
bool usb_is_connected() {
    return true;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> dispatch(const std::string& datagram) {
    sent.clear();
    testing::internal::CaptureStderr();
    command_dispatch(datagram.c_str());
    const std::string written = testing::internal::GetCapturedStderr();
    if (!written.empty()) {
        sent.insert(sent.begin(), written);
    }
    return sent;
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

const char* const shot[] = {"Camera shot\n", "01 01 "};

TEST(Dispatcher, RunsNothingForWhatIsNoCommand) {
    const std::string datagrams[] = {
        "",
        "!",
        "!{",
        "! ",
        "{\"cmd\":\"shot\"}",
        "!!{\"cmd\":\"shot\"}",
        " !{\"cmd\":\"shot\"}",
        "!\"shot\"",
        "!null",
        "![\"cmd\",\"shot\"]",
        "![{\"cmd\":\"shot\"}]",
        "!{\"cmd\":[\"shot\"]}",
        "!{\"cmd\":{\"cmd\":\"shot\"}}",
        "!{\"cmd\":null}",
        "!{\"cmd\":true}",
        "!{\"cmd\":0}",
        "!{\"cmd\":\"Shot\"}",
        "!{\"cmd\":\"shot \"}",
        "!{\"cmd\":\"\"}",
        "!{\"param\":\"start\"}",
        "!{\"cmd\":\"record\",\"param\":1}",
        "!{\"cmd\":\"shot\"",
        std::string{"!{\"cmd\":\0\"shot\"}", 15},
        "!{\"cmd\":\"\\ud800\"}",
        std::string{"!"}.append(nested(100'000)),
        "!{\"cmd\":" + nested(4000) + "}",
        // The first of several members alike counts.
        "!{\"cmd\":\"none\",\"cmd\":\"shot\"}",
        "!{\"cmd\":7,\"CMD\":\"shot\"}",
    };
    for (const std::string& datagram : datagrams) {
        EXPECT_THAT(dispatch(datagram), IsEmpty()) << datagram.substr(0, 60);
    }
}

TEST(Dispatcher, TakesACommandHoweverItIsWrapped) {
    const std::string datagrams[] = {
        "!{\"cmd\":\"shot\"}",
        "! \t\r\n{ \"CMD\" : \"shot\" } and more",
        std::string{"!{\"cmd\":\"shot\"}\0{", 17},
        "!{\"cmd\":\"\\u0073hot\"}",
        "!{\"cmd\":\"shot\",\"cmd\":\"resetcamera\"}",
        "!{\"deep\":" + nested(900) + ",\"cmd\":\"shot\"}",
        "!{\"cmd\":\"shot\",\"pad\":\"" + std::string(9'000, 'x') + "\"}",
        "!{\"cmd\":\"shot\",\"param\":5,\"value\":{},\"value2\":[]}",
    };
    for (const std::string& datagram : datagrams) {
        EXPECT_THAT(dispatch(datagram), testing::ElementsAreArray(shot)) << datagram.substr(0, 60);
    }
}

TEST(Dispatcher, ConvertsEveryNumberThatATextCanHold) {
    struct Case {
        const char* members;
        const char* line;
        const char* payload;  // command id first; null when nothing is sent
    };
    const Case cases[] = {
        {R"("aperture","param":"nan")", "Camera set aperture nan\n", "26 00 00 "},
        {R"("aperture","param":"inf")", "Camera set aperture inf\n", "26 FF FF "},
        {R"("aperture","param":"-inf")", "Camera set aperture -inf\n", "26 00 00 "},
        {R"("aperture","param":"1e300")", "Camera set aperture inf\n", "26 FF FF "},
        {R"("aperture","param":"-1e300")", "Camera set aperture -inf\n", "26 00 00 "},
        {R"("aperture","param":"0x1p3")", "Camera set aperture 8.00\n", "26 20 03 "},
        {R"("aperture","param":"")", "Camera set aperture 0.00\n", "26 00 00 "},
        {R"("aperture","param":"f2.8")", "Camera set aperture 0.00\n", "26 00 00 "},
        {R"("aperture","param":" 2.8f")", "Camera set aperture 2.80\n", "26 18 01 "},
        {R"("aperture","param":"-0.5")", "Camera set aperture -0.50\n", "26 CE FF "},
        {R"("aperture","param":"21474836.48")", "Camera set aperture 21474836.00\n", "26 FF FF "},
        {R"("aperture","param":"2,8")", "Camera set aperture 2.00\n", "26 C8 00 "},
        {R"("iso","param":"100abc")", "Camera set iso 100\n", "2A 03 "},
        {R"("iso","param":"0x64")", "Camera set iso 0\n", "2A 00 "},
        {R"("iso","param":" +0400")", "Camera set iso 400\n", "2A 05 "},
        {R"("iso","param":"99999999999999999999")", "Camera set iso 2147483647\n", "2A 00 "},
        {R"("iso","param":"4294967396")", "Camera set iso 2147483647\n", "2A 00 "},
        {R"("iso","param":"-4294967196")", "Camera set iso -2147483648\n", "2A 00 "},
        {R"("ev","param":"nan")", "Camera set EV nan\n", nullptr},
        {R"("ev","param":"inf")", "Camera set EV inf\n", nullptr},
        {R"("ev","param":"")", "Camera set EV 0.0\n", "2E 10 "},
        {R"("ev","param":"none")", "Camera set EV 0.0\n", "2E 10 "},
        {R"("ev","param":"-0")", "Camera set EV -0.0\n", "2E 10 "},
        {R"("ev","param":"3e-1")", "Camera set EV 0.3\n", "2E 11 "},
        {R"("ev","param":"0.30000000000000001")", "Camera set EV 0.3\n", "2E 11 "},
        {R"("ev","param":"0.3000000000000001")", "Camera set EV 0.3\n", nullptr},
        {R"("focus","param":"manual","value":"1e3")", "Set manual focus 1% (0)\n", "95 00 00 "},
        {R"("focus","param":"manual","value":"-2147483649")", "Set manual focus -2147483648% (0)\n",
         "95 00 00 "},
        {R"("focus","param":"point","value":"inf","value2":"-1e999")", "Camera set focus point inf,-inf\n",
         "30 00 00 80 7F 00 00 80 FF "},
        {R"("focus","param":"point","value":"1e-60","value2":"")",
         "Camera set focus point 0.000000,0.000000\n", "30 00 00 00 00 00 00 00 00 "},
        {R"("focus","param":"point","value":"nan","value2":"0x.8")", "Camera set focus point nan,0.500000\n",
         "30 00 00 C0 7F 00 00 00 3F "},
        {R"("wb","param":"custom","value":"2147483647")",
         "Camera set WB custom\nCamera set WB temperature 2147483647\n", "2C 06 14 "},
        {R"("wb","param":"custom","value":"9999999999")",
         "Camera set WB custom\nCamera set WB temperature 9999999999\n", "2C 06 14 "},
        {R"("wb","param":"custom","value":"")", "Camera set WB custom\nCamera set WB temperature \n",
         nullptr},
        {R"("wb","param":"custom","value":5600)", "Camera set WB custom\n", nullptr},
    };
    for (const Case& c : cases) {
        const auto seen = dispatch(std::string{"!{\"cmd\":"} + c.members + "}");
        if (c.payload == nullptr) {
            EXPECT_THAT(seen, ElementsAre(c.line)) << c.members;
        } else {
            EXPECT_THAT(seen, ElementsAre(c.line, c.payload)) << c.members;
        }
    }
}

// The builder takes more than the dispatcher asks it for.
TEST(VideoResolution, SizeAndRateAreCodedApart) {
    struct Case {
        int width, height, frame_rate;
        const char* codes;
    };
    for (const Case& c : {Case{2704, 1520, 96, "18 0B "}, Case{1280, 1080, 30, "00 03 "},
                          Case{4096, 720, 0, "00 00 "}, Case{1920, 1080, 29, "0A 00 "}}) {
        sent.clear();
        camera_set_video_resolution(c.width, c.height, c.frame_rate);
        EXPECT_THAT(sent,
                    ElementsAre(std::string{"18 "} + c.codes + "00 00 00 ", std::string{"AF "} + c.codes));
    }
}

}  // namespace
