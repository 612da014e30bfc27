// The client's socket on the status port: whom it listens to, and where it sends.
#include "tools/service_link.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include "tools/exit_codes.h"

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

// A socket of 127.0.0.1, on a port that the kernel chose.
class Sender {
  public:
    Sender() : fd_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port_ = ntohs(address.sin_port);
    }
    ~Sender() { close(fd_); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    std::uint16_t port() const { return port_; }
    std::string name() const { return "127.0.0.1:" + std::to_string(port_); }

    void send(const std::string& datagram, std::uint16_t port) const {
        const sockaddr_in to = loopback(port);
        ASSERT_EQ(sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                         sizeof to),
                  static_cast<ssize_t>(datagram.size()));
    }

    // What is waiting, empty when nothing is.
    std::string receive() const {
        char buffer[1024];
        const ssize_t size = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
        return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : "";
    }

  private:
    static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        return address;
    }

    int fd_;
    std::uint16_t port_ = 0;
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
    const Sender service;
    const Sender stranger;
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
    const Sender service;
    const Sender restarted;
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
    const Sender service;
    EXPECT_TRUE(ctl::send_command_to(service.name(), "{}"));
    EXPECT_EQ(service.receive(), "!{}");
    for (const char* wrong : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
                              "127.0.0.1:80x", "localhost:80", ":80", "127.0.0.1:-1"}) {
        EXPECT_FALSE(ctl::send_command_to(wrong, "{}")) << wrong;
    }
}

}  // namespace
