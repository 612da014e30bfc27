// The command socket on a clock of the test's own: presence to the millisecond, and datagrams of every size.
#include "io/udp_endpoint.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "platform/clock.h"
#include "platform/file_descriptor.h"

namespace {
std::atomic<std::uint32_t> fake_time{1};
}

// In place of platform/clock.
std::uint32_t now_ms() {
    return fake_time;
}
void sleep_ms(std::uint32_t) {}

namespace {

using testing::ElementsAre;

// What the endpoint reported, in order; the UDP reader adds to it.
class Journal {
  public:
    void add(std::string event) {
        const std::lock_guard lock{mutex_};
        events_.push_back(std::move(event));
        changed_.notify_all();
    }

    // Waits for that many events and takes all of them.
    std::vector<std::string> take(std::size_t count) {
        std::unique_lock lock{mutex_};
        changed_.wait_for(lock, std::chrono::seconds{60}, [&] { return events_.size() >= count; });
        return std::exchange(events_, {});
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
};

Journal journal;
std::mutex gate;  // no datagram is handled while the test holds it

std::string describe(std::span<const std::uint8_t> datagram) {
    const auto* text = reinterpret_cast<const char*>(datagram.data());
    return std::to_string(datagram.size()) + " bytes, text of " + std::to_string(std::strlen(text));
}

class UdpEndpointTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        const UdpHandlers handlers{
            .on_datagram =
                [](auto datagram, const char*, std::uint16_t) {
                    const std::lock_guard lock{gate};
                    journal.add(describe(datagram));
                },
            .on_peer_found = [] { journal.add("found"); },
            .on_peer_lost = [] { journal.add("lost"); },
        };
        ASSERT_EQ(udp_endpoint_open(0, 1000, true, handlers), 0);
        // The kernel chose the port: a datagram from the endpoint tells it.
        client = FileDescriptor{socket(AF_INET, SOCK_DGRAM, 0)};
        sockaddr_in here{};
        here.sin_family = AF_INET;
        here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof here;
        ASSERT_EQ(bind(client.get(), reinterpret_cast<sockaddr*>(&here), length), 0);
        ASSERT_EQ(getsockname(client.get(), reinterpret_cast<sockaddr*>(&here), &length), 0);
        const std::uint8_t hello[] = {1, 2, 3};
        ASSERT_EQ(udp_endpoint_send_to(hello, "127.0.0.1", ntohs(here.sin_port)), 3);
        char buffer[16];
        ASSERT_EQ(
            recvfrom(client.get(), buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&endpoint), &length),
            3);
    }

    static void TearDownTestSuite() { client = FileDescriptor{}; }

    static void send(const std::string& datagram) {
        ASSERT_EQ(sendto(client.get(), datagram.data(), datagram.size(), 0,
                         reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint),
                  static_cast<ssize_t>(datagram.size()));
    }

    static inline FileDescriptor client;
    static inline sockaddr_in endpoint{};
};

TEST_F(UdpEndpointTest, PresenceEndsAfterMoreThanTheTimeout) {
    udp_endpoint_check_timeout();
    EXPECT_THAT(journal.take(0), ElementsAre()) << "nobody was there yet";
    // The last start lets the clock wrap within the silence.
    for (const std::uint32_t start : {5000U, 3'000'000'000U, 0xFFFFFE00U}) {
        fake_time = start;
        send("x");
        EXPECT_THAT(journal.take(2), ElementsAre("found", "1 bytes, text of 1"));
        fake_time = start + 900;
        send("x");
        EXPECT_THAT(journal.take(1), ElementsAre("1 bytes, text of 1")) << "still present";
        fake_time = start + 1900;
        udp_endpoint_check_timeout();
        EXPECT_THAT(journal.take(0), ElementsAre()) << "1000 ms of silence";
        fake_time = start + 1901;
        udp_endpoint_check_timeout();
        udp_endpoint_check_timeout();
        EXPECT_THAT(journal.take(1), ElementsAre("lost")) << "1001 ms of silence, reported once";
    }
}

TEST_F(UdpEndpointTest, DatagramsOfEverySizeReadAsTexts) {
    send(std::string(20'000, 'a'));
    send(std::string(10'000, 'b'));
    send(std::string(9'999, 'c'));
    send("short");  // nothing of the longer ones before may stand behind it
    EXPECT_THAT(journal.take(5),
                ElementsAre("found", "10000 bytes, text of 10000", "10000 bytes, text of 10000",
                            "9999 bytes, text of 9999", "5 bytes, text of 5"));
}

TEST_F(UdpEndpointTest, KeepsTwoThousandCommandsUntilTheirTurn) {
    const int wanted = 2'000'000;
    int granted = 0;
    socklen_t length = sizeof granted;
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE}) {
        setsockopt(client.get(), SOL_SOCKET, option, &wanted, sizeof wanted);
    }
    getsockopt(client.get(), SOL_SOCKET, SO_RCVBUF, &granted, &length);
    if (granted < 2 * wanted) {
        GTEST_SKIP() << "the kernel's limit is net.core.rmem_max here";
    }
    {
        const std::lock_guard lock{gate};
        for (int i = 0; i < 2000; ++i) {
            send(R"(!{"cmd":"video_resolution","param":"3840x2160@30"})");
        }
    }
    send("the last");
    std::vector<std::string> events;
    while (events.empty() || events.back() != "8 bytes, text of 8") {
        const std::vector<std::string> more = journal.take(1);
        ASSERT_FALSE(more.empty());
        events.insert(events.end(), more.begin(), more.end());
    }
    EXPECT_EQ(std::count(events.begin(), events.end(), "50 bytes, text of 50"), 2000);
}

TEST_F(UdpEndpointTest, AHostThatIsNoAddressGetsNothing) {
    const std::uint8_t data[] = {1};
    for (const char* host : {"localhost", "", "127.0.0.256", "::1"}) {
        EXPECT_EQ(udp_endpoint_send_to(data, host, 5000), -1) << host;
    }
}

}  // namespace
