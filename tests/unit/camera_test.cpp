#include "sim/aircraft/camera.h"

#include <optional>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/hex.h"
#include "tests/hex.h"

namespace {

using namespace std::chrono_literals;
using sim::AircraftState;
using sim::Bytes;
using sim::Camera;
using sim::Packet;
using sim::Time;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// Packets with known sums, from both kinds of receiver.
TEST(LinkPacket, SumsAreThoseOnTheWire) {
    const struct {
        const char* bytes;
        Packet packet;
    } cases[] = {
        {"55 0E 04 66 02 01 00 00 40 02 02 01 08 44", {2, 1, 0, 0x40, 2, 2, {1}}},
        {"55 0E 04 66 02 01 DE 2F 40 02 02 01 04 32", {2, 1, 0x2FDE, 0x40, 2, 2, {1}}},
        {"55 14 04 6D 02 04 00 00 40 04 0C F4 01 00 00 00 00 90 BA 9C",
         {2, 4, 0, 0x40, 4, 0x0C, {0xF4, 1, 0, 0, 0, 0, 0x90}}},
        {"55 17 04 38 02 04 00 00 40 04 0A 58 02 00 00 00 00 64 00 E0 04 1A 49",
         {2, 4, 0, 0x40, 4, 0x0A, {0x58, 2, 0, 0, 0, 0, 0x64, 0, 0xE0, 4}}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(formats::hex(sim::encode_packet(test.packet)), test.bytes);
        Packet decoded;
        std::string problem;
        EXPECT_EQ(sim::decode_packet(bytes_from_hex(test.bytes), decoded, problem),
                  bytes_from_hex(test.bytes).size());
        EXPECT_EQ(decoded.payload, test.packet.payload);
        EXPECT_EQ(decoded.sequence, test.packet.sequence);
    }
}

// Sends command packets as the device does: with the sequence number that is due.
class CameraTest : public testing::Test {
  protected:
    std::optional<Camera> camera{std::in_place};
    std::uint16_t sequence = 65'530;  // the counter wraps in every test that sends a few

    std::string send(std::uint8_t set, std::uint8_t id, const std::string& payload, Time now = 0s,
                     std::uint8_t sender = 0x02, std::uint8_t type = 0x40) {
        const std::uint8_t receiver = set == 0x04 ? 0x04 : 0x01;
        const Packet packet{sender, receiver, sequence++, type, set, id, bytes_from_hex(payload)};
        const auto received = camera->receive(sim::encode_packet(packet), now);
        EXPECT_THAT(received, SizeIs(1));
        return received.at(0).meaning;
    }
};

TEST_F(CameraTest, RecordingRunsAndPhotoModeIsLeft) {
    send(0x02, 0x10, "00", 0s, 0x09);
    send(0x02, 0x02, "01", 10s);
    send(0x02, 0x02, "01", 12s);  // already running
    const AircraftState running = camera->state(75s);
    EXPECT_EQ(running.camera_mode, 1);
    EXPECT_EQ(running.record_seconds, 65);
    EXPECT_EQ(running.record_left_seconds, 4020u - 65u);
    send(0x02, 0x02, "00", 80s);
    const AircraftState stopped = camera->state(100s);
    EXPECT_EQ(stopped.record_seconds, 0);
    EXPECT_EQ(stopped.record_left_seconds, 4020u - 70u);
    EXPECT_THAT(camera->complaints(), IsEmpty());
}

TEST_F(CameraTest, GimbalMovesWithinItsRange) {
    const struct {
        const char* name;
        std::vector<std::pair<std::uint8_t, const char*>> packets;
        sim::GimbalValues pushed;  // tilt, roll negated, heading
    } cases[] = {
        {"relative: 2 degrees of heading", {{0x0C, "E8 03 00 00 00 00 90"}}, {0, 0, 2}},
        {"relative: value 2 comes before value 1", {{0x0C, "00 00 E8 03 00 00 90"}}, {0, -2, 0}},
        {"hold", {{0x0C, "01 00 01 00 01 00 90"}}, {0, 0, 0}},
        {"absolute, to each end", {{0x0A, "A0 F6 C2 01 24 FA 64 00 E0 04"}}, {-150, -45, -240}},
        {"absolute, beyond the ends", {{0x0A, "FF 7F FF 7F FF 7F 64 00 E0 04"}}, {90, -45, 60}},
        {"next position looks back", {{0x4C, "FE 09"}}, {0, 0, -180}},
        {"centre keeps the heading",
         {{0x4C, "FE 09"}, {0x0C, "00 00 00 00 E8 03 90"}, {0x4C, "FE 08"}},
         {0, 0, -180}},
        {"next position again", {{0x4C, "FE 09"}, {0x4C, "FE 09"}}, {0, 0, 0}},
        {"first person rolls with the aircraft", {{0x4C, "01 00"}, {0x50, "00 04 01 00"}}, {0, -6, 0}},
        {"follow is level",
         {{0x4C, "01 00"}, {0x50, "00 04 01 00"}, {0x4C, "02 00"}, {0x50, "00 04 01 00"}},
         {0, 0, 0}},
        {"a locked tilt stays",
         {{0x4C, "02 00"}, {0x50, "00 04 01 01"}, {0x0C, "E8 03 00 00 E8 03 90"}},
         {0, 0, 2}},
    };
    for (const auto& test : cases) {
        camera.emplace();
        for (const auto& [id, payload] : test.packets) {
            EXPECT_THAT(send(0x04, id, payload), Not(HasSubstr("COMPLAINT"))) << test.name;
        }
        EXPECT_EQ(camera->state(10s).gimbal, test.pushed) << test.name;
        EXPECT_THAT(camera->complaints(), IsEmpty());
    }
}

TEST_F(CameraTest, GimbalTakesItsTimeAndCalibrationTheWholeWay) {
    send(0x04, 0x50, "00 05 01 02");
    send(0x04, 0x4C, "FE 09");
    EXPECT_EQ(camera->state(1s).gimbal[2], -40);  // slow
    send(0x04, 0x50, "00 05 01 00", 1s);
    EXPECT_EQ(camera->state(2s).gimbal[2], -160);
    send(0x04, 0x07, "00", 10s);
    send(0x04, 0x01, "00 04 00 04 00 04 80 00", 10s, 0x09, 0x20);
    send(0x04, 0x08, "", 10s);
    EXPECT_EQ(camera->state(11s).gimbal[0], -120);
    EXPECT_EQ(camera->state(13s).gimbal[0], 60);
    EXPECT_EQ(camera->state(20s).gimbal, (sim::GimbalValues{0, 0, -180}));
    EXPECT_THAT(camera->complaints(), IsEmpty());
}

// What the camera must not let pass. Each case is one packet after a good one.
TEST(CameraComplaints, NameWhatIsWrong) {
    const Packet iso_800{2, 1, 1, 0x40, 2, 0x2A, {6}};
    const auto changed = [&](auto change) {
        Packet packet = iso_800;
        change(packet);
        return sim::encode_packet(packet);
    };
    const auto damaged = [&](std::size_t at) {
        Bytes bytes = sim::encode_packet(iso_800);
        bytes[at] ^= 0x10;
        return bytes;
    };
    const struct {
        const char* complaint;
        Bytes transfer;
    } cases[] = {
        {"no start byte", damaged(0)},
        {"wrong header sum", damaged(2)},
        {"wrong header sum", damaged(3)},
        {"wrong packet sum", damaged(7)},
        {"wrong packet sum", damaged(13)},
        {"sequence number 2 where 1 was due", changed([](Packet& packet) { packet.sequence = 2; })},
        {"sequence number 0 where 1 was due", changed([](Packet& packet) { packet.sequence = 0; })},
        {"wrong receiver", changed([](Packet& packet) { packet.receiver = 4; })},
        {"wrong sender", changed([](Packet& packet) { packet.sender = 9; })},
        {"wrong command type", changed([](Packet& packet) { packet.type = 0; })},
        {"unknown command", changed([](Packet& packet) { packet.id = 0x2B; })},
        {"unknown command", changed([](Packet& packet) { packet.set = 5; })},
        {"payload of 2 bytes instead of 1", changed([](Packet& packet) {
             packet.payload = {6, 0};
         })},
        {"iso with a value that has no meaning", changed([](Packet& packet) { packet.payload = {2}; })},
        {"second packet without its first", changed([](Packet& packet) {
             packet.id = 0xAF;
             packet.payload = {16, 3};
         })},
    };
    for (const auto& test : cases) {
        Camera camera;
        camera.receive(sim::encode_packet({2, 1, 0, 0x40, 2, 0x2A, {5}}), 0s);
        camera.receive(test.transfer, 1s);
        EXPECT_THAT(camera.complaints(), ElementsAre(HasSubstr(test.complaint)));
        EXPECT_THAT(camera.complaints(), ElementsAre(HasSubstr(formats::hex(test.transfer))));
        EXPECT_EQ(camera.state(1s).iso_code, 5) << test.complaint;
    }
}

TEST_F(CameraTest, PairsStayTogether) {
    send(0x02, 0x18, "0A 07 00 00 00");
    EXPECT_THAT(send(0x02, 0x2A, "05"), HasSubstr("without its second packet"));
    send(0x02, 0x18, "0A 07 00 00 00");
    EXPECT_THAT(send(0x02, 0xAF, "0A 06"), HasSubstr("COMPLAINT"));
    send(0x02, 0x4C, "01 05 00 00 00 00");
    EXPECT_EQ(send(0x02, 0x4C, "04 00 00 03 00 00"), "transmission again");
    send(0x02, 0x4C, "01 06 00 00 00 00");
    EXPECT_THAT(send(0x02, 0x4C, "04 00 00 03 00 00"), HasSubstr("COMPLAINT"));
    sequence = 7;
    camera->expect_new_sequence();
    EXPECT_EQ(send(0x02, 0x4C, "01 00 00 00 00 00"), "transmission no such mode (refused)");
    EXPECT_EQ(send(0x02, 0x4C, "04 00 00 00 00 00"), "transmission again");
    EXPECT_THAT(camera->complaints(), SizeIs(3));
}

}  // namespace
