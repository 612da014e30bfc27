// The library's socket on the status port: whom it listens to, where it sends, and whether what it shows is
// so.
#include "tests/unit/client_link.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "ardenvue.h"

namespace {

using namespace client_link;

int wait_for(const Link& link, ArdenvueReport report = ARDENVUE_ANY_REPORT) {
    return ardenvue_link_wait(link.get(), report, patience);
}

std::string model(const Link& link) {
    return ardenvue_link_text(link.get(), "camera_model");
}

std::string line_of(const std::string& model) {
    return line_with("Phantom 4 Pro", model);
}

TEST(ClientLink, NobodyButTheServiceIsHeardWhileItSpeaks) {
    const Link link = open_link();
    Sender service;
    Sender stranger;
    EXPECT_EQ(ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 0), ARDENVUE_ERROR_TIMEOUT);
    EXPECT_EQ(ardenvue_send_json(link.get(), "{}"), ARDENVUE_ERROR_NONE_YET);
    EXPECT_STREQ(ardenvue_link_service(link.get()), "");

    stranger.send("\x07 not a line", link);
    stranger.send("", link);
    stranger.send(std::string(60'000, 'x'), link);
    // Any report tells the command port, but a line is believed before a record.
    stranger.send(histogram_record(), link);
    ASSERT_EQ(wait_for(link), ARDENVUE_HISTOGRAM);
    EXPECT_EQ(ardenvue_link_service(link.get()), stranger.name());
    service.send(gimbal_focus_record(), link);
    service.send(line_of("ours"), link);
    ASSERT_EQ(wait_for(link), ARDENVUE_STATUS_LINE);
    EXPECT_EQ(ardenvue_link_service(link.get()), service.name());

    stranger.send(line_of("forged"), link);
    stranger.send(gimbal_focus_record(), link);
    EXPECT_EQ(ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 50), ARDENVUE_ERROR_TIMEOUT);
    EXPECT_EQ(model(link), "ours");
    ArdenvueLinkTotals totals;
    ardenvue_link_totals(link.get(), &totals);
    EXPECT_EQ(totals.ignored, 6U);
    EXPECT_EQ(totals.restarts, 0U);
    EXPECT_GT(ardenvue_send(link.get(), "shot"), 0);
    EXPECT_EQ(service.receive(), R"(!{"cmd":"shot"})");
    EXPECT_EQ(stranger.receive(), "");
}

TEST(ClientLink, ARestartedServiceIsTakenUpOnItsNewPort) {
    const Link link = open_link();
    Sender service;
    Sender restarted;
    service.send(line_of("old"), link);
    ASSERT_EQ(wait_for(link), ARDENVUE_STATUS_LINE);
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (ardenvue_link_service(link.get()) != restarted.name() &&
           std::chrono::steady_clock::now() < deadline) {
        restarted.send(line_of("new"), link);
        ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 100);
    }
    EXPECT_EQ(model(link), "new");
    ArdenvueLinkTotals totals;
    ardenvue_link_totals(link.get(), &totals);
    EXPECT_EQ(totals.restarts, 1U);
    EXPECT_GT(ardenvue_send_json(link.get(), "{}"), 0);
    EXPECT_EQ(restarted.receive(), "!{}");
    EXPECT_EQ(service.receive(), "");
}

TEST(ClientLink, APortThatIsHeldIsNamedWithItsHolder) {
    const Link first = open_link();
    ArdenvueLink* second = nullptr;
    char reason[ARDENVUE_REASON_SIZE];
    const auto open = [&](const char* address) {
        return ardenvue_link_open(&second, address, port_of(first), reason, sizeof reason);
    };
    EXPECT_EQ(open(nullptr), ARDENVUE_ERROR_BUSY);
    EXPECT_THAT(reason, testing::HasSubstr("(pid " + std::to_string(getpid()) + ")"));
    EXPECT_EQ(open("198.51.100.7"), ARDENVUE_ERROR_SYSTEM);
    EXPECT_THAT(reason, testing::HasSubstr("198.51.100.7: "));
    EXPECT_EQ(open("localhost"), ARDENVUE_ERROR_ARGUMENT);
    EXPECT_EQ(second, nullptr);
}

TEST(ClientLink, ACommandPortMayBeKnownOrComeWithADatagram) {
    Sender service;
    ArdenvueLink* opened = nullptr;
    ASSERT_EQ(ardenvue_link_open_unbound(&opened, service.name().c_str(), nullptr, 0), 0);
    const Link known{opened, ardenvue_link_close};
    EXPECT_GT(ardenvue_send_json(known.get(), "{}"), 0);
    EXPECT_EQ(service.receive(), "!{}");
    EXPECT_EQ(ardenvue_link_wait(known.get(), ARDENVUE_ANY_REPORT, 0), ARDENVUE_ERROR_ARGUMENT);
    EXPECT_EQ(ardenvue_link_descriptor(known.get()), -1);
    for (const char* wrong : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
                              "127.0.0.1:80x", "localhost:80", ":80", "127.0.0.1:-1"}) {
        EXPECT_EQ(ardenvue_link_open_unbound(&opened, wrong, nullptr, 0), ARDENVUE_ERROR_ARGUMENT) << wrong;
    }

    const Link learning = unbound_link();
    sockaddr_in source{};
    source.sin_family = AF_INET;
    source.sin_port = htons(service.port());
    source.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string record = gimbal_focus_record();
    EXPECT_EQ(ardenvue_link_take(learning.get(), record.data(), record.size(), &source),
              ARDENVUE_GIMBAL_FOCUS);
    EXPECT_GT(ardenvue_send(learning.get(), "record stop"), 0);
    EXPECT_EQ(service.receive(), R"(!{"cmd":"record","param":"stop"})");
}

TEST(ClientLink, PresenceIsKeptUpWhileItIsAskedFor) {
    const Link link = open_link();
    Sender service;
    service.send(line_with(), link);
    ASSERT_EQ(wait_for(link), ARDENVUE_STATUS_LINE);
    ardenvue_link_keep_present(link.get(), true);
    // One at once and one each half second, however long one call waits.
    ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 2'500);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(service.receive(), "!{}") << i;
    }
    ardenvue_link_keep_present(link.get(), false);
    while (!service.receive().empty()) {
    }
    ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 600);
    EXPECT_EQ(service.receive(), "");
}

// A ring as the service leaves it, of which only the header is looked at.
class Ring {
  public:
    Ring() {
        const int fd = shm_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(ftruncate(fd, 24), 0);
        header_ = static_cast<std::uint16_t*>(mmap(nullptr, 24, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
    }
    ~Ring() {
        munmap(header_, 24);
        shm_unlink(name_.c_str());
    }
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;

    const char* name() const { return name_.c_str(); }
    void frame() { __atomic_add_fetch(header_ + 1, std::uint16_t{1}, __ATOMIC_RELEASE); }

  private:
    const std::string name_ = "/ardenvue-link-test." + std::to_string(getpid());
    std::uint16_t* header_ = nullptr;
};

TEST(ClientLink, ReportsWithoutFramesAreNotLive) {
    const Link link = open_link();
    Sender service;
    Ring ring;
    // Until the state is this one, with reports and frames coming or not.
    const auto becomes = [&](ArdenvueLinkState state, bool reports, bool frames) {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (std::chrono::steady_clock::now() < deadline) {
            if (ardenvue_link_state(link.get()) == state) {
                return true;
            }
            if (reports) {
                service.send(gimbal_focus_record(), link);
            }
            if (frames) {
                ring.frame();
            }
            ardenvue_link_wait(link.get(), ARDENVUE_STATUS_LINE, 20);
        }
        return false;
    };
    EXPECT_EQ(ardenvue_link_state(link.get()), ARDENVUE_LINK_DOWN);
    EXPECT_TRUE(becomes(ARDENVUE_LINK_LIVE, true, false)) << "nobody asked for frames";
    EXPECT_EQ(ardenvue_link_watch_frames(link.get(), ""), ARDENVUE_ERROR_ARGUMENT);
    ASSERT_EQ(ardenvue_link_watch_frames(link.get(), ring.name()), 0);
    EXPECT_TRUE(becomes(ARDENVUE_LINK_SILENT, true, false));
    EXPECT_TRUE(becomes(ARDENVUE_LINK_LIVE, true, true));
    EXPECT_TRUE(becomes(ARDENVUE_LINK_SILENT, true, false)) << "the last values are sent on";
    EXPECT_TRUE(becomes(ARDENVUE_LINK_DOWN, false, false));
    EXPECT_TRUE(becomes(ARDENVUE_LINK_SILENT, false, true)) << "a picture without reports";
}

}  // namespace
