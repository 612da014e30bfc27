// What the simulated camera and gimbal do when a command packet arrives: one table by command set and id.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sim/aircraft/gimbal.h"
#include "sim/aircraft/packet.h"
#include "sim/aircraft/pushes.h"

namespace sim {

// Camera, card and gimbal.
struct Aircraft {
    AircraftState state;
    Gimbal gimbal;
    Time record_start{0};
    std::uint32_t record_left_at_start = 0;
    std::uint8_t transmission_code = 0;  // no push carries it
};

enum class Verdict {
    done,
    refused,         // a value that this camera can't do, as a real one would refuse it; nothing changed
    not_understood,  // a value that has no meaning
};

struct Outcome {
    Verdict verdict;
    std::string detail;  // "1/500", "400"; may be empty
};

// What most kinds of command packet have in common; a kind that differs says so.
struct CommandDetails {
    std::string_view begins = {};  // payload bytes
    std::string_view then = {};    // name of the row whose packet has to follow at once, if any
    bool continues = false;        // may come only as such a following packet
    std::uint8_t sender = 0x02;
    std::uint8_t type = 0x40;
};

// One kind of command packet. Rows of the same set and id differ in how their payload begins.
struct CommandRow {
    std::string_view name;
    std::uint8_t set;
    std::uint8_t id;
    std::size_t payload_size;
    Outcome (*act)(Aircraft& aircraft, std::span<const std::uint8_t> payload, Time now);
    CommandDetails details = {};
};

// The two tables; within one, the first row that matches counts.
std::span<const CommandRow> camera_commands();
std::span<const CommandRow> gimbal_commands();

// The row that the packet's set, id and payload select; null when there is none.
const CommandRow* find_command(const Packet& packet);

// The address that packets of this command set have to carry as their receiver.
std::uint8_t receiver_of(std::uint8_t set);

// Brings recording time, battery, histogram and gimbal up to the given time.
void advance(Aircraft& aircraft, Time now);

}  // namespace sim
