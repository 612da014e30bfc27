// The gimbal follows the inputs that another process publishes: packets by movement mode, stop and hold
// packets, and their order among the packets of commands. Every packet's sums and sequence number are checked
// throughout.
#include <fcntl.h>
#include <sys/mman.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "formats/hex.h"
#include "sim/aircraft/packet.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;

using Inputs = std::array<double, 3>;

constexpr const char* opened = "Shared raw RC mem opened\n";
constexpr const char* created = "Creating new shared raw RC\n";
constexpr const char* absolute_mode = R"({"cmd":"set","name":"movement","value":"abs"})";
constexpr const char* relative_mode = R"({"cmd":"set","name":"movement","value":"rel"})";
constexpr const char* lock = R"({"cmd":"orientation","param":"lock"})";
constexpr const char* unlock = R"({"cmd":"orientation","param":"unlock"})";
constexpr const char* shot = R"({"cmd":"shot"})";

// Command id and payload, as hexadecimal text.
constexpr const char* shot_packet = "01 01";
constexpr const char* relative_stop = "0C 00 00 00 00 00 00 90";
constexpr const char* absolute_stop = "0A 00 00 00 00 00 00 64 00 E0 04";
constexpr const char* hold = "0C 01 00 01 00 01 00 90";

class Gimbal {
  public:
    explicit Gimbal(ServiceSetup setup = {}) : service_{std::move(setup)} {}

    Service& service() { return service_; }

    // What the other process publishes.
    void publish(const Inputs& inputs) {
        const auto record = service_.board().shared_memory("/shared_rc_raw");
        ASSERT_TRUE(record);
        ASSERT_EQ(record->size, 1504U);
        std::memcpy(record->data.get() + 1056, inputs.data(), sizeof inputs);
    }

    void stream() { service_.stream(Milliseconds{2}); }

    void restart() {
        service_.cable().pull();
        service_.stop_keep_alive();
        ASSERT_EQ(service_.end_code(), 3);
        service_.start();
        next_sequence_ = 0;
    }

    // The next packet, "id payload"; each must carry the number after that of the one before.
    std::string next() {
        const Bytes bytes = service_.next_packet();
        sim::Packet packet;
        std::string problem;
        if (bytes.empty() || sim::decode_packet(bytes, packet, problem) != bytes.size()) {
            ADD_FAILURE() << (bytes.empty() ? "no packet" : problem);
            return {};
        }
        EXPECT_EQ(packet.sequence, next_sequence_) << formats::hex(bytes);
        next_sequence_ = static_cast<std::uint16_t>(packet.sequence + 1);
        packet.payload.insert(packet.payload.begin(), packet.id);
        return formats::hex(packet.payload);
    }

    // Waits for the packet, past those that were on their way.
    void wait_for(const std::string& packet) {
        for (int i = 0; i < 500; ++i) {
            if (next() == packet) {
                return;
            }
        }
        FAIL() << "no " << packet;
    }

    // The next packets are these and, several passes later, no more has come: a command's packet is next.
    void expect_only(const std::vector<std::string>& packets) {
        for (const std::string& packet : packets) {
            ASSERT_EQ(next(), packet);
        }
        while (service_.main_application().receive(Milliseconds{0})) {
            // Older than the packets.
        }
        // Three binary records after another: some 400 ms, twenty passes.
        for (int i = 0; i < 3; ++i) {
            ASSERT_TRUE(service_.next_datagram([](const Datagram& d) { return d.bytes.size() == 28; }));
        }
        service_.command(shot);
        ASSERT_EQ(next(), shot_packet);
    }

    // The inputs return to zero: packets that were on their way, three stop packets, nothing more.
    void expect_stop(const std::string& moving, const std::string& stop) {
        publish({0, 0, 0});
        std::string packet = moving;
        while (packet == moving) {
            packet = next();
        }
        ASSERT_EQ(packet, stop);
        expect_only({stop, stop});
    }

  private:
    Service service_;
    std::uint16_t next_sequence_ = 0;
};

class GimbalMotion : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        gimbal_ = std::make_unique<Gimbal>();
        ASSERT_TRUE(gimbal_->service().said(created));
        ASSERT_NO_FATAL_FAILURE(gimbal_->stream());
        ASSERT_NE(gimbal_->service().command_port(), 0);
    }
    static void TearDownTestSuite() { gimbal_.reset(); }

    static inline std::unique_ptr<Gimbal> gimbal_;
};

TEST_F(GimbalMotion, SendsTheInputsInTheUnitsOfTheMode) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        Inputs inputs;
        const char* relative;
        const char* absolute;
    };
    // On the wire the third value stands before the second.
    const Case cases[] = {
        {{0.5, 0, 0}, "0C F4 01 00 00 00 00 90", "0A 50 FB 00 00 00 00 64 00 E0 04"},
        {{-1, 0, 0}, "0C 18 FC 00 00 00 00 90", "0A 58 02 00 00 00 00 64 00 E0 04"},
        {{1, 0, 0}, "0C E8 03 00 00 00 00 90", "0A A0 F6 00 00 00 00 64 00 E0 04"},
        {{0, -1, 0}, "0C 00 00 00 00 18 FC 90", "0A 00 00 00 00 24 FA 64 00 E0 04"},
        {{0, 1, 0}, "0C 00 00 00 00 E8 03 90", "0A 00 00 00 00 84 03 64 00 E0 04"},
        {{0, 0, 1}, "0C 00 00 E8 03 00 00 90", "0A 00 00 C2 01 00 00 64 00 E0 04"},
        {{0, 0, -1}, "0C 00 00 18 FC 00 00 90", "0A 00 00 3E FE 00 00 64 00 E0 04"},
        {{0.1239, -0.1239, 0.0019}, "0C 7B 00 01 00 85 FF 90", "0A D7 FE 00 00 47 FF 64 00 E0 04"},
        {{66, 0, 0}, "0C D0 01 00 00 00 00 90", "0A 40 95 00 00 00 00 64 00 E0 04"},
        {{inf, -inf, 1e300}, "0C FF FF FF FF 00 00 90", "0A 00 00 FF FF 00 00 64 00 E0 04"},
        {{4e-324, 0, 0}, "0C 00 00 00 00 00 00 90", "0A 00 00 00 00 00 00 64 00 E0 04"},
        {{nan, 0.25, nan}, "0C 00 00 00 00 FA 00 90", "0A 00 00 00 00 E1 00 64 00 E0 04"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.relative);
        gimbal_->publish(c.inputs);
        gimbal_->service().command(relative_mode);
        ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(c.relative));
        EXPECT_EQ(gimbal_->next(), c.relative) << "one packet a pass";
        gimbal_->service().command(absolute_mode);
        ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(c.absolute));
        EXPECT_EQ(gimbal_->next(), c.absolute);
    }
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_stop(std::end(cases)[-1].absolute, absolute_stop));
    gimbal_->service().command(relative_mode);
    // Not a number is not at rest: more than the three packets of a stop go out.
    gimbal_->publish({0, nan, 0});
    for (int i = 0; i < 6; ++i) {
        ASSERT_EQ(gimbal_->next(), relative_stop);
    }
    gimbal_->publish({0.5, nan, 0});
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for("0C F4 01 00 00 00 00 90"));
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_stop("0C F4 01 00 00 00 00 90", relative_stop));
}

TEST_F(GimbalMotion, AChangeOfModeWhileMovingTakesTheStopAlong) {
    const std::string relative = "0C 00 00 00 00 F4 01 90";
    const std::string absolute = "0A 00 00 00 00 C2 01 64 00 E0 04";
    gimbal_->publish({0, 0.5, 0});
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(relative));
    gimbal_->service().command(absolute_mode);
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(absolute));
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_stop(absolute, absolute_stop));
    gimbal_->service().command(relative_mode);
}

TEST_F(GimbalMotion, TheLockHoldsWhatDoesNotMove) {
    gimbal_->service().command(lock);
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(gimbal_->next(), hold);
    }
    const std::string moving = "0C 00 00 F4 01 00 00 90";
    gimbal_->publish({0, 0, 0.5});
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(moving));
    EXPECT_EQ(gimbal_->next(), moving);
    gimbal_->publish({0, 0, 0});
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(relative_stop));
    for (const char* packet : {relative_stop, relative_stop, hold, hold}) {
        EXPECT_EQ(gimbal_->next(), packet);
    }
    gimbal_->service().command(absolute_mode);
    gimbal_->service().command(shot);
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(shot_packet));
    // One more pass may have been under way in the mode before.
    std::string packet = hold;
    gimbal_->service().command(shot);
    while (packet == hold) {
        packet = gimbal_->next();
    }
    ASSERT_EQ(packet, shot_packet);
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_only({}));
    gimbal_->service().command(unlock);
    gimbal_->service().command(relative_mode);
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_only({}));
}

// Two threads build packets. On the wire the numbers stay in order, and the packets of a command side by
// side.
TEST_F(GimbalMotion, DoesNotComeBetweenThePacketsOfACommand) {
    const std::vector<std::string> calibration = {"07 00", "01 00 04 00 04 00 04 80 00", "08"};
    gimbal_->publish({0.5, 0, 0});
    const std::string moving = "0C F4 01 00 00 00 00 90";
    ASSERT_NO_FATAL_FAILURE(gimbal_->wait_for(moving));
    int motion_packets = 0;
    for (int i = 0; i < 100 || motion_packets < 4; ++i) {
        ASSERT_LT(i, 10'000) << "the gimbal moved all the while";
        gimbal_->service().command(R"({"cmd":"horizont","param":"calibrate"})");
        std::string packet = gimbal_->next();
        for (; packet == moving; packet = gimbal_->next()) {
            ++motion_packets;
        }
        ASSERT_EQ(packet, calibration[0]);
        ASSERT_EQ(gimbal_->next(), calibration[1]);
        ASSERT_EQ(gimbal_->next(), calibration[2]);
    }
    ASSERT_NO_FATAL_FAILURE(gimbal_->expect_stop(moving, relative_stop));
}

// Each packet waits for a read, and more commands come than there are reads: gimbal and commands take turns.
TEST(GimbalMotionStart, ABurstOfCommandsDoesNotHoldUpTheGimbal) {
    constexpr Milliseconds read_pace{30};
    Gimbal gimbal;
    Service& service = gimbal.service();
    ASSERT_NO_FATAL_FAILURE(service.stream(read_pace));
    service.command(lock);
    ASSERT_NO_FATAL_FAILURE(gimbal.wait_for(hold));
    // Commands that wait one behind the other until the end of the case.
    for (int i = 0; i < 150; ++i) {
        service.command(shot);
    }
    ASSERT_NO_FATAL_FAILURE(gimbal.wait_for(shot_packet));
    // Counted are the shots that a read was waited for. A reader that a busy machine runs late lets many pass
    // at once, which hold up nobody.
    const auto most_shots_before = [&](const std::string& wanted, int times) {
        int most = 0;
        for (int i = 0; i < times; ++i) {
            int shots = 0;
            auto last = std::chrono::steady_clock::now();
            for (std::string packet; !(packet = gimbal.next()).empty() && packet != wanted;) {
                const auto now = std::chrono::steady_clock::now();
                shots += packet == shot_packet && now - last > read_pace / 2 ? 1 : 0;
                last = now;
            }
            most = std::max(most, shots);
        }
        return most;
    };
    EXPECT_LE(most_shots_before(hold, 20), 3);
    const std::string moving = "0C F4 01 00 00 00 00 90";
    ASSERT_NO_FATAL_FAILURE(gimbal.publish({0.5, 0, 0}));
    EXPECT_LE(most_shots_before(moving, 2), 3);
    ASSERT_NO_FATAL_FAILURE(gimbal.publish({0, 0, 0}));
    EXPECT_LE(most_shots_before(relative_stop, 3), 3);
}

// Without the inputs' record the rest of the service goes on; it is asked for again, a line each time, but
// not at every pass.
#ifndef REAL_BOARD
TEST(GimbalMotionStart, AsksAgainForARecordThatCouldNotBeHad) {
    Gimbal gimbal{{.faults = {"shm_open.shared_rc_raw"}}};
    Service& service = gimbal.service();
    const auto start = std::chrono::steady_clock::now();
    ASSERT_NO_FATAL_FAILURE(gimbal.stream());
    service.command(shot);
    EXPECT_EQ(gimbal.next(), shot_packet);
    ASSERT_TRUE(service.said(created, 4)) << "at the start, and three times while it streams";
    EXPECT_GE(std::chrono::steady_clock::now() - start, Milliseconds{2000});
    service.board().set_fault("shm_open.shared_rc_raw", false);
    ASSERT_TRUE(eventually([&] { return service.board().shared_memory("/shared_rc_raw").has_value(); }));
    ASSERT_NO_FATAL_FAILURE(gimbal.publish({0.5, 0, 0}));
    EXPECT_EQ(gimbal.next(), "0C F4 01 00 00 00 00 90");
}
#endif

// While the link is down nothing is built, and modes and locks are taken all the same.
TEST(GimbalMotionStart, TheFirstPacketCarriesTheFirstNumber) {
    Gimbal gimbal;
    Service& service = gimbal.service();
    ASSERT_TRUE(service.said(created));
    struct Case {
        const char* command;
        Inputs inputs;
        const char* first_packet;
    };
    const Case cases[] = {
        {relative_mode, {0.5, 0, 0}, "55 14 04 6D 02 04 00 00 40 04 0C F4 01 00 00 00 00 90 BA 9C"},
        {lock, {0, 0, 0}, "55 14 04 6D 02 04 00 00 40 04 0C 01 00 01 00 01 00 90 FB AE"},
        {absolute_mode, {-1, 0, 0}, "55 17 04 38 02 04 00 00 40 04 0A 58 02 00 00 00 00 64 00 E0 04 1A 49"},
    };
    for (const Case& c : cases) {
        ASSERT_NE(service.bound_command_port(), 0);
        service.command(c.command);
        // Unknown, so it sends nothing, but its line tells that the command before it is done.
        service.command(R"({"cmd":"gimbal","param":"mode","value":"unknown"})");
        ASSERT_TRUE(service.said("Gimbal set mode unknown\n"));
        gimbal.publish(c.inputs);
        ASSERT_NO_FATAL_FAILURE(gimbal.stream());
        ASSERT_EQ(formats::hex(service.next_packet()), c.first_packet);
        // The cable is pulled in full motion.
        ASSERT_NO_FATAL_FAILURE(gimbal.restart());
        ASSERT_TRUE(service.said(opened));
    }
}

// Another process may make the record shorter, or unlink it and make it anew: what can't be read is no
// motion, and the record is taken up as soon as it is there again.
TEST(GimbalMotionStart, StopsForARecordThatWasTakenAwayUntilItIsBack) {
    Gimbal gimbal;
    gimbal.stream();
    sim::ServiceRun& board = gimbal.service().board();
    const std::string name = board.shm_name("/shared_rc_raw");
    const auto moves = [&] {
        gimbal.publish({0.5, 0, 0});
        ASSERT_NO_FATAL_FAILURE(gimbal.wait_for("0C F4 01 00 00 00 00 90"));
    };
    const auto stops = [&] {
        ASSERT_NO_FATAL_FAILURE(gimbal.wait_for(relative_stop));
        ASSERT_NO_FATAL_FAILURE(gimbal.expect_only({relative_stop, relative_stop}));
    };

    ASSERT_NO_FATAL_FAILURE(moves());
    const FileDescriptor record{shm_open(name.c_str(), O_RDWR | O_TRUNC, 0)};
    ASSERT_NO_FATAL_FAILURE(stops());
    ASSERT_TRUE(gimbal.service().said("Shared memory /shared_rc_raw was made shorter"));
    ASSERT_EQ(ftruncate(record.get(), 1504), 0);
    ASSERT_TRUE(gimbal.service().said("Shared memory /shared_rc_raw has its size again\n"));
    ASSERT_NO_FATAL_FAILURE(moves());

    ASSERT_EQ(shm_unlink(name.c_str()), 0);
    ASSERT_NO_FATAL_FAILURE(stops());
    board.create_shared_memory("/shared_rc_raw", 1504);
    ASSERT_TRUE(gimbal.service().said(opened));
    ASSERT_NO_FATAL_FAILURE(moves());

    // What came in its place can't be opened: said as well.
    const std::string path = "/dev/shm" + name;
    ASSERT_EQ(shm_unlink(name.c_str()), 0);
    ASSERT_EQ(symlink("nowhere", path.c_str()), 0);
    ASSERT_NO_FATAL_FAILURE(stops());
    EXPECT_TRUE(gimbal.service().said("Shared memory /shared_rc_raw can't be had: "));
    EXPECT_EQ(unlink(path.c_str()), 0);
}

}  // namespace
