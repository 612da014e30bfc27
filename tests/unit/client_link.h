// What the library's tests of its link share: a link on a port of its own, and who sends to it.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "ardenvue/client.h"
#include "sim/board/loopback.h"

namespace client_link {

using namespace std::chrono_literals;

constexpr int patience = 20'000;  // ms

using Link = std::unique_ptr<ArdenvueLink, decltype(&ardenvue_link_close)>;

inline Link open_link(std::uint16_t port = 0) {
    ArdenvueLink* link = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    EXPECT_EQ(ardenvue_link_open(&link, nullptr, port, reason, sizeof reason), 0) << reason;
    return {link, ardenvue_link_close};
}

inline Link unbound_link() {
    ArdenvueLink* link = nullptr;
    EXPECT_EQ(ardenvue_link_open_unbound(&link, nullptr, nullptr, 0), 0);
    return {link, ardenvue_link_close};
}

inline std::uint16_t port_of(const Link& link) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(ardenvue_link_descriptor(link.get()), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// Who sends to the link, the service or another.
class Sender {
  public:
    std::uint16_t port() const { return socket_.port(); }
    std::string name() const { return "127.0.0.1:" + std::to_string(port()); }

    void send(const std::string& datagram, const Link& link) {
        ASSERT_TRUE(socket_.send({reinterpret_cast<const std::uint8_t*>(datagram.data()), datagram.size()},
                                 port_of(link)));
    }

    // What is waiting, empty when nothing is.
    std::string receive() {
        const auto datagram = socket_.receive(0ms);
        return datagram ? datagram->text() : "";
    }

  private:
    sim::UdpSocket socket_;
};

// In memory that ends where the datagram does, so that a sanitizer sees a read behind it.
inline int take(const Link& link, const std::string& datagram) {
    const std::vector<char> exact{datagram.begin(), datagram.end()};
    return ardenvue_link_take(link.get(), exact.data(), exact.size(), nullptr);
}

// A whole line as the service sends it, with a text in place of another.
inline std::string line_with(const std::string& old_text = "", const std::string& new_text = "") {
    std::string line =
        "\x07"
        "camera_detected=1,camera_model=Phantom 4 Pro,camera_mode=video,sd=15.0G,shots_left=1234,"
        "rec_time_left=00:43:11,rec_time=01:02:05,voltage=-1,battery_level=87,battery_temp=25.3,"
        "shot_mode=JPG+RAW,resolution=3840x2160,framerate=30,format=3840x2160@30,ae=1,aperture=2.8,"
        "shutter=1/500,shutter_set=2.5\",iso=400,iso_set=auto,ev=+0.3,image_mode=manual,"
        "color_mode=black white,wb=custom,wb_temp=5600,ratio=16:9,sensor=0,video_std=NTSC,"
        "antiflicker=50 Hz,histogram=1,pl_state=,pl_id=0,pl_dur=,pl_time=,";
    return line.replace(line.find(old_text), old_text.size(), new_text);
}

// The orientation lock, -180, 10000, -32768, recording; AFC, 1000, 329, 0.25 and 0.75.
inline std::string gimbal_focus_record() {
    return {
        "\x06\x00\x01\x4C\xFF\x10\x27\x00\x80\x80\x11\x22\x01\x86"
        "\x00\xE8\x03\x49\x01\xFA\x00\xEE\x02\x33\x44\x00\x00\x00",
        28};
}

inline std::string histogram_record() {
    std::string record{"\x06\x01", 2};
    for (int i = 0; i < 64; ++i) {
        record += static_cast<char>(200 - i);
    }
    return record;
}

}  // namespace client_link
