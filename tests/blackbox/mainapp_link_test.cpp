// The link to the main application: who is present, what the datagrams carry and when they go, and what
// becomes of datagrams of every size.
#include "formats/hex.h"
#include "sim/aircraft/packet.h"
#include "sim/aircraft/pushes.h"
#include "tests/blackbox/harness.h"
#include "tests/blackbox/says_in_order.h"

namespace {

using namespace blackbox;
using testing::Each;

using Clock = std::chrono::steady_clock;

Bytes bytes_of(std::string_view text) {
    return {text.begin(), text.end()};
}

// L status line, G gimbal and focus record, H histogram record, ? anything else.
char kind_of(const Datagram& datagram) {
    const Bytes& bytes = datagram.bytes;
    if (datagram.is_status_line()) {
        return 'L';
    }
    if (bytes.size() == 28 && bytes[0] == 6 && bytes[1] == 0) {
        return 'G';
    }
    return bytes.size() == 66 && bytes[0] == 6 && bytes[1] == 1 ? 'H' : '?';
}

// While nothing streams, nothing is sent, but who is present is noticed all the same.
TEST(MainappLinkDown, NoticesPresenceAndSendsNothing) {
    Service service;
    UdpSocket& application = service.main_application();
    const std::uint16_t port = service.bound_command_port();
    ASSERT_NE(port, 0);
    application.send(bytes_of("no command"), port);
    ASSERT_TRUE(service.said("Main application found\n"));
    const auto last = Clock::now();
    application.send(bytes_of("!{\"cmd\":\"gimbal\",\"param\":\"mode\",\"value\":\"x\"}"), port);
    ASSERT_TRUE(service.said("Gimbal set mode x\n"));
    ASSERT_TRUE(service.said("Main application lost\n"));
    EXPECT_GE(Clock::now() - last, Milliseconds{1000});
    EXPECT_FALSE(application.receive(Milliseconds{0}));
    EXPECT_FALSE(service.board().next_notice(Milliseconds{0}));

    application.send({}, port);
    EXPECT_EQ(service.end_code(), 3);
    EXPECT_THAT(service.board().errors(), SaysInOrder({"Main application found\n", "Gimbal set mode x\n",
                                                       "Main application lost\n", "UDP read failed\n"}))
        << "found is said before a datagram is handled";
}

class MainappLink : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        service_ = std::make_unique<Service>();
        ASSERT_NO_FATAL_FAILURE(service_->stream(Milliseconds{2}));
        ASSERT_NE(service_->command_port(), 0);
    }
    static void TearDownTestSuite() { service_.reset(); }

    static void push(const sim::Packet& packet) {
        ASSERT_TRUE(
            service_->send_frames(sim::encode_frame(formats::FrameType::packets, encode_packet(packet))));
    }

    // The kinds of datagrams from now on: what goes from one status line to just before the next, so many
    // times.
    static std::vector<std::string> periods(std::size_t count) {
        while (service_->main_application().receive(Milliseconds{0})) {
            // Sent before now.
        }
        std::vector<std::string> kinds;
        while (const auto datagram = service_->main_application().receive(patience)) {
            if (datagram->is_status_line()) {
                if (kinds.size() == count) {
                    return kinds;
                }
                kinds.emplace_back();
            }
            if (!kinds.empty()) {
                kinds.back() += kind_of(*datagram);
            }
        }
        return {"nothing in time"};
    }

    static inline std::unique_ptr<Service> service_;
};

TEST_F(MainappLink, SendsALineAndFiveRecordsEveryTenTicks) {
    EXPECT_THAT(periods(2), Each("LGGGGG"));
}

TEST_F(MainappLink, SendsTheHistogramForThreeSecondsAfterItsPush) {
    sim::AircraftState state;
    Bytes record = {6, 1};
    for (std::uint8_t i = 0; i < 64; ++i) {
        state.histogram[i] = static_cast<std::uint8_t>(0xC0 + i);
        record.push_back(state.histogram[i]);
    }
    {
        const std::jthread pusher{[&state](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                push(sim::histogram_push(state));
                std::this_thread::sleep_for(Milliseconds{200});
            }
        }};
        const auto histogram = service_->next_datagram([](const Datagram& d) { return kind_of(d) == 'H'; });
        ASSERT_TRUE(histogram);
        EXPECT_EQ(formats::hex(histogram->bytes), formats::hex(record));
        EXPECT_NE(service_->next_status({"histogram=1,"}), "");
        EXPECT_THAT(periods(1), Each("LGHGHGHGHGH"));
    }
    const auto pushed = Clock::now();
    ASSERT_NO_FATAL_FAILURE(push(sim::histogram_push(state)));
    EXPECT_NE(service_->next_status({"histogram=0,"}), "");
    EXPECT_GE(Clock::now() - pushed, Milliseconds{3000});
    EXPECT_THAT(periods(1), Each("LGGGGG"));
}

TEST_F(MainappLink, NoticesWhetherTheCameraRecords) {
    struct Case {
        std::uint8_t flags;
        const char* notice;
    };
    for (const Case& c : {Case{0x80, "rec_active"}, Case{0xC0, "rec_inactive"}, Case{0xBF, "rec_active"},
                          Case{0x40, "rec_inactive"}}) {
        sim::Packet packet = sim::camera_status_push({});
        packet.payload[0] = c.flags;
        ASSERT_NO_FATAL_FAILURE(push(packet));
        EXPECT_TRUE(eventually([&] { return service_->board().next_notice(patience) == c.notice; }))
            << int{c.flags};
    }
    // Two notices with each line.
    while (service_->board().next_notice(Milliseconds{0})) {
        // Sent before now.
    }
    EXPECT_THAT(periods(2), Each("LGGGGG"));
    int notices = 0;
    while (service_->board().next_notice(Milliseconds{0})) {
        ++notices;
    }
    EXPECT_THAT(notices, testing::AllOf(testing::Ge(4), testing::Le(8)));
}

TEST_F(MainappLink, TakesCommandsFromAnyoneAndReportsToTheConfiguredOne) {
    UdpSocket other;
    const std::uint16_t port = service_->command_port();
    for (int i = 0; i < 3; ++i) {
        other.send(bytes_of("!{\"cmd\":\"shot\"}"), port);
        EXPECT_EQ(service_->next_packet().size(), 14U);
    }
    EXPECT_THAT(periods(1), Each("LGGGGG"));
    EXPECT_FALSE(other.receive(Milliseconds{0}));
}

TEST_F(MainappLink, TakesCommandsOfUpToTenThousandBytes) {
    const auto padded = [](std::size_t size) {
        std::string text = "!{\"cmd\":\"shot\",\"pad\":\"";
        text.resize(size - 2, 'x');
        return bytes_of(text + "\"}");
    };
    for (const std::size_t size : {100U, 9'999U, 10'000U, 10'001U, 20'000U, 10'000U, 30U}) {
        service_->datagram(padded(size));
        if (size <= 10'000) {
            EXPECT_EQ(service_->next_packet().size(), 14U) << size;
        }
    }
    // What is cut off behind a whole command does not matter.
    Bytes trailed = bytes_of("!{\"cmd\":\"resetcamera\"}");
    trailed.resize(20'000, '}');
    service_->datagram(trailed);
    const Bytes packet = service_->next_packet();
    ASSERT_EQ(packet.size(), 14U);
    EXPECT_EQ(packet[10], 0x78) << "the two that were cut sent nothing";
}

}  // namespace
