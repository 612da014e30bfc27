// Every command with every argument of tests/data/commands.txt, through the shipped executable: the datagram
// goes in, the packets come out of the IN endpoint, the lines stand on the standard error stream, in this
// order and nothing else in between.
#include <fstream>
#include <sstream>

#include "formats/hex.h"
#include "sim/aircraft/packet.h"
#include "sim/aircraft/pushes.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;

std::vector<std::string> split(std::string text, const std::string& separator) {
    std::vector<std::string> parts;
    for (std::size_t at = text.find(separator); at != std::string::npos; at = text.find(separator)) {
        parts.push_back(text.substr(0, at));
        text.erase(0, at + separator.size());
    }
    parts.push_back(text);
    return parts;
}

struct Row {
    std::string json;
    std::vector<std::string> lines;
    std::vector<std::string> packets;
};

// "json | line ; line | packet ; packet"
Row parse_row(const std::string& text) {
    const std::vector<std::string> parts = split(text.ends_with(" |") ? text + " " : text, " | ");
    if (parts.size() != 3) {
        throw std::runtime_error{"no row: " + text};
    }
    const auto items = [](const std::string& part) {
        return part.empty() ? std::vector<std::string>{} : split(part, " ; ");
    };
    return {parts[0], items(parts[1]), items(parts[2])};
}

// The packet of that pattern with that sequence number, sums computed bit by bit.
Bytes packet_of(const std::string& pattern, std::uint16_t sequence) {
    Bytes bytes;
    std::istringstream stream{pattern};
    for (std::string byte; stream >> byte;) {
        bytes.push_back(
            byte == "ss" || byte == "cc" ? 0 : static_cast<std::uint8_t>(std::stoi(byte, nullptr, 16)));
    }
    const sim::Packet packet{
        bytes[4], bytes[5], sequence, bytes[8], bytes[9], bytes[10], {bytes.begin() + 11, bytes.end() - 2}};
    Bytes whole = sim::encode_packet(packet);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + 4, whole.begin())) << pattern;
    return whole;
}

// The lines that commands wrote: without those of the presence, of the watchdog and of the companion's shell.
std::string command_lines(const std::string& text) {
    std::string lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);) {
        if (!line.starts_with("Main application ") && !line.starts_with("delta ") &&
            !line.starts_with("sh: ")) {
            lines += line + "\n";
        }
    }
    return lines;
}

class Commands : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(service_.stream(Milliseconds{2}));
        ASSERT_NE(service_.command_port(), 0) << service_.board().errors();
        // The first push of all opens the shared camera state, with a line of its own.
        ASSERT_TRUE(send_push(sim::battery_push({})));
        ASSERT_TRUE(service_.said("shared cam state\n"));
        before_ = service_.board().errors();
    }

    bool send_push(const sim::Packet& packet) {
        return service_.send_frames(sim::encode_frame(formats::FrameType::packets, encode_packet(packet)));
    }

    // Has the camera push the value, and waits until the binary record shows it.
    void push(const std::string& directive) {
        std::istringstream stream{directive};
        std::string name;
        int value = 0;
        stream >> name >> value;
        sim::AircraftState state;
        std::size_t offset = 3;
        sim::Packet packet;
        if (name == "@attitude") {
            state.gimbal[2] = static_cast<std::int16_t>(value);
            packet = sim::attitude_push(state);
        } else {
            ASSERT_EQ(name, "@focus_max");
            state.focus_max = static_cast<std::uint16_t>(value);
            packet = sim::focus_push(state, sim::PushForm::shorter);
            offset = 15;
        }
        ASSERT_TRUE(send_push(packet));
        const auto shows = [&](const Datagram& datagram) {
            return datagram.bytes.size() == 28 && datagram.bytes[offset] == (value & 0xFF) &&
                   datagram.bytes[offset + 1] == ((value >> 8) & 0xFF);
        };
        ASSERT_TRUE(service_.next_datagram(shows)) << directive;
    }

    void run(const Row& row) {
        SCOPED_TRACE(row.json);
        service_.command(row.json);
        for (const std::string& pattern : row.packets) {
            ASSERT_EQ(formats::hex(service_.next_packet()), formats::hex(packet_of(pattern, sequence_)));
            ++sequence_;
        }
        for (const std::string& line : row.lines) {
            expected_ += line + "\n";
        }
        std::string written;
        eventually([&] {
            written = command_lines(service_.board().errors().substr(before_.size()));
            return written.size() >= expected_.size();
        });
        ASSERT_EQ(written, expected_);
    }

    Service service_;
    std::string before_;    // written before the first command
    std::string expected_;  // since then
    std::uint16_t sequence_ = 0;
};

TEST_F(Commands, EachSendsItsPacketsAndWritesItsLines) {
    // One packet known from a real link, sums and all: the first command of a fresh service.
    service_.command(R"({"cmd":"record","param":"start"})");
    ASSERT_EQ(formats::hex(service_.next_packet()), "55 0E 04 66 02 01 00 00 40 02 02 01 08 44");
    expected_ = "Record start\n";
    sequence_ = 1;

    std::ifstream file{TEST_DATA "/commands.txt"};
    int rows = 0;
    for (std::string text; std::getline(file, text);) {
        if (text.starts_with('@')) {
            ASSERT_NO_FATAL_FAILURE(push(text));
        } else if (text.starts_with('{')) {
            ASSERT_NO_FATAL_FAILURE(run(parse_row(text)));
            ++rows;
        }
    }
    EXPECT_GT(rows, 300);
    // What sent nothing really sent nothing: the next packet is the next command's.
    run(parse_row(R"({"cmd":"shot"} | Camera shot | 55 0E 04 66 02 01 ss ss 40 02 01 01 cc cc)"));
}

}  // namespace
