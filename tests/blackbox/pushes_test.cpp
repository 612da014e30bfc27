// Camera pushes in, datagrams and the shared attitude record out: tests/data/pushes.txt played into the
// executable.
#include <fstream>
#include <map>

#include "tests/blackbox/harness.h"
#include "tests/hex.h"

namespace {

using namespace blackbox;

struct Step {
    std::vector<Bytes> pushes;
    std::map<std::string, std::string> expected;  // by the names in the file
};

std::vector<Step> recorded_steps() {
    std::vector<Step> steps;
    std::ifstream file{TEST_DATA "/pushes.txt"};
    for (std::string row; std::getline(file, row);) {
        const std::size_t space = row.find(' ');
        const std::string name = row.substr(0, space);
        const std::string value = row.substr(space + 1);
        if (name == "step") {
            steps.emplace_back();
        } else if (name == "push") {
            steps.back().pushes.push_back(bytes_from_hex(value));
        } else {
            steps.back().expected[name] = value;
        }
    }
    return steps;
}

Bytes packets_frame(const std::vector<Bytes>& packets) {
    Bytes frame = {0x55, 0xCC, 0x49, 0x57, 0, 0, 0, 0};
    for (const Bytes& packet : packets) {
        frame.insert(frame.end(), packet.begin(), packet.end());
    }
    frame[4] = static_cast<std::uint8_t>(frame.size() - 8);
    frame[5] = static_cast<std::uint8_t>((frame.size() - 8) >> 8);
    return frame;
}

// A whole packet that is no push.
const Bytes other_packet = bytes_from_hex("55 0D 04 33 01 02 00 00 00 02 81 50 F5");
const Bytes attitude_push = recorded_steps().front().pushes[3];
constexpr const char* camera_state = "/shared_camstate";

Bytes attitude_seen(Service& service) {
    const std::optional<sim::SharedMapping> object = service.board().shared_memory(camera_state);
    return object ? Bytes{object->data.get(), object->data.get() + object->size} : Bytes{};
}

#ifndef REAL_BOARD
TEST(Attitude, GoesOnWithoutItsSharedRecord) {
    Service service{{.faults = {"shm_open.shared_camstate"}}};
    service.stream();
    service.send_frames(packets_frame({other_packet, attitude_push}));
    EXPECT_TRUE(service.said("Creating new shared cam state\n"));
    const auto is_record = [](const Datagram& datagram) {
        return datagram.bytes.size() == 28 && datagram.bytes[3] == 0x84 && datagram.bytes[4] == 0x03;
    };
    EXPECT_TRUE(service.next_datagram(is_record));
    service.board().set_fault("shm_open.shared_camstate", false);
    service.send_frames(packets_frame({attitude_push}));
    ASSERT_NE(service.next_status(), "");
    EXPECT_EQ(attitude_seen(service), Bytes{}) << "opened anew";
}
#endif

TEST(Attitude, OutlivesTheService) {
    Service service;
    service.stream();
    ASSERT_NE(service.next_status(), "");
    EXPECT_FALSE(service.board().shared_memory(camera_state)) << "opened before there was a packet";
    service.send_frames(packets_frame({other_packet}));
    ASSERT_TRUE(service.said("Creating new shared cam state\n"));
    EXPECT_TRUE(eventually([&] { return attitude_seen(service) == Bytes(6); }));
    service.send_frames(packets_frame({attitude_push}));
    // Third value 900, first 1, second -1 negated.
    const Bytes expected = {0x84, 0x03, 0x01, 0x00, 0x01, 0x00};
    EXPECT_TRUE(eventually([&] { return attitude_seen(service) == expected; }));

    service.stop_keep_alive();
    service.board().kill();
    EXPECT_EQ(attitude_seen(service), expected);
    // Another process has made it longer meanwhile.
    service.board().create_shared_memory(camera_state, 100);
    service.start();
    service.stream();
    service.send_frames(packets_frame({other_packet}));
    ASSERT_TRUE(service.said("Shared cam state mem opened\n"));
    EXPECT_TRUE(eventually([&] { return attitude_seen(service) == expected; })) << "not cut to its size";
}

TEST(Pushes, ReachTheMainApplication) {
    const std::vector<Step> steps = recorded_steps();
    ASSERT_EQ(steps.size(), 22U);
    Service service;
    service.stream();
    for (std::size_t number = 0; number < steps.size(); ++number) {
        SCOPED_TRACE("step " + std::to_string(number));
        const Step& step = steps[number];
        // Sent again while it waits: a histogram counts for three seconds only.
        std::string line;
        const bool has_line = eventually([&] {
            service.send_frames(packets_frame(step.pushes));
            line = service.next_status();
            return line == step.expected.at("line");
        });
        ASSERT_TRUE(has_line) << line << "\nexpected\n" << step.expected.at("line");

        // All of the step is decoded: whatever comes now tells of it.
        for (const auto& [name, subtype] : {std::pair{"record", 0}, std::pair{"histogram", 1}}) {
            const std::optional<Datagram> datagram =
                service.next_datagram([kind = subtype](const Datagram& one) {
                    return one.bytes.size() > 2 && one.bytes[0] == 6 && one.bytes[1] == kind;
                });
            ASSERT_TRUE(datagram) << name;
            EXPECT_EQ(datagram->bytes, bytes_from_hex(step.expected.at(name))) << name;
        }
        while (service.board().next_notice(Milliseconds{0})) {
        }
        EXPECT_EQ(service.board().next_notice(patience), step.expected.at("notice"));
        EXPECT_EQ(attitude_seen(service), bytes_from_hex(step.expected.at("attitude")));
    }
}

}  // namespace
