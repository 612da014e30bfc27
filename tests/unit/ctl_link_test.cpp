// The client's socket on the status port: whom it listens to, and where it sends.
#include <unistd.h>

#include <string>

#include <gmock/gmock.h>

#include "ctl/exit_codes.h"
#include "ctl/service_link.h"
#include "sim/board/loopback.h"

namespace {

using namespace std::chrono_literals;

// As the service sends it before any push; the model tells the senders apart.
std::string line_of(const std::string& model) {
    return "\x07"
           "camera_detected=0,camera_model=" +
           model +
           ",camera_mode=,sd=,shots_left=0,rec_time_left=,rec_time=,voltage=0,battery_level=0,battery_temp=0."
           "0,"
           "shot_mode=,resolution=,framerate=,format=@,ae=0,aperture=,shutter=,shutter_set=,iso=0,iso_set=,"
           "ev=,"
           "image_mode=,color_mode=,wb=,wb_temp=0,ratio=,sensor=0,video_std=,antiflicker=,histogram=0,pl_"
           "state=,"
           "pl_id=0,pl_dur=,pl_time=,";
}

// Who sends to the link, the service or another.
class Sender {
  public:
    std::uint16_t port() const { return socket_.port(); }
    std::string name() const { return "127.0.0.1:" + std::to_string(port()); }

    void send(const std::string& datagram, std::uint16_t port) {
        ASSERT_TRUE(
            socket_.send({reinterpret_cast<const std::uint8_t*>(datagram.data()), datagram.size()}, port));
    }

    // What is waiting, empty when nothing is.
    std::string receive() {
        const auto datagram = socket_.receive(0ms);
        return datagram ? datagram->text() : "";
    }

  private:
    sim::UdpSocket socket_;
};

// A link on a port that was free a moment ago.
struct OpenLink {
    ctl::ServiceLink link;
    std::uint16_t port = 0;

    OpenLink() {
        int code = ctl::port_taken;
        while (code == ctl::port_taken) {
            port = Sender{}.port();
            code = link.open("127.0.0.1", port);
        }
        EXPECT_EQ(code, ctl::done) << link.problem();
    }
};

TEST(CtlLink, NobodyButTheServiceIsHeardWhileItSpeaks) {
    OpenLink open;
    Sender service;
    Sender stranger;
    ctl::CameraView view;
    EXPECT_FALSE(open.link.wait(view, ctl::Clock::now()));
    EXPECT_FALSE(open.link.send_command("{}"));

    // Records, and lines that are none, tell nothing about the service.
    stranger.send(std::string{"\x06\x01", 2} + std::string(64, 'x'), open.port);
    stranger.send("\x07 not a line", open.port);
    stranger.send("", open.port);
    stranger.send(std::string(60'000, 'x'), open.port);
    service.send(line_of("ours"), open.port);
    ASSERT_TRUE(open.link.wait(view, ctl::Clock::now() + 20s));
    EXPECT_EQ(open.link.service_name(), service.name());
    EXPECT_EQ(open.link.totals().ignored, 4u);

    stranger.send(line_of("forged"), open.port);
    EXPECT_FALSE(open.link.wait(view, ctl::Clock::now() + 50ms));
    EXPECT_EQ(view.line->value("camera_model"), "ours");
    EXPECT_TRUE(open.link.up());
    ASSERT_TRUE(open.link.send_command(R"({"cmd":"shot"})"));
    EXPECT_EQ(service.receive(), R"(!{"cmd":"shot"})");
    EXPECT_EQ(stranger.receive(), "");
}

TEST(CtlLink, ARestartedServiceIsTakenUpOnItsNewPort) {
    OpenLink open;
    Sender service;
    Sender restarted;
    ctl::CameraView view;
    service.send(line_of("old"), open.port);
    ASSERT_TRUE(open.link.wait(view, ctl::Clock::now() + 20s));
    const auto deadline = ctl::Clock::now() + 20s;
    while (open.link.service_name() != restarted.name() && ctl::Clock::now() < deadline) {
        restarted.send(line_of("new"), open.port);
        open.link.wait(view, ctl::Clock::now() + 100ms);
    }
    EXPECT_EQ(view.line->value("camera_model"), "new");
    ASSERT_TRUE(open.link.send_command("{}"));
    EXPECT_EQ(restarted.receive(), "!{}");
    EXPECT_EQ(service.receive(), "");
}

TEST(CtlLink, APortThatIsHeldIsNamedWithItsHolder) {
    OpenLink first;
    ctl::ServiceLink second;
    EXPECT_EQ(second.open("127.0.0.1", first.port), ctl::port_taken);
    EXPECT_THAT(second.problem(), testing::HasSubstr("(pid " + std::to_string(getpid()) + ")"));
    ctl::ServiceLink nowhere;
    EXPECT_EQ(nowhere.open("198.51.100.7", first.port), ctl::unusable);
    EXPECT_EQ(nowhere.open("localhost", first.port), ctl::unusable);
}

TEST(CtlLink, ACommandPortIsWrittenAsHostAndPort) {
    Sender service;
    EXPECT_TRUE(ctl::send_command_to(service.name(), "{}"));
    EXPECT_EQ(service.receive(), "!{}");
    for (const char* wrong : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
                              "127.0.0.1:80x", "localhost:80", ":80", "127.0.0.1:-1"}) {
        EXPECT_FALSE(ctl::send_command_to(wrong, "{}")) << wrong;
    }
}

}  // namespace
