// What the board's preload library and the simulated cable say to each other. Each open gadget file is one
// SOCK_SEQPACKET connection to the socket "cable" in the board's directory; a message is one byte of kind and
// what follows from it, so that empty transfers, acknowledgements and stalls differ from a closed connection.
// A pulled cable shows as the end of the stream on the data endpoints' connections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace sim::board_protocol {

enum class Kind : std::uint8_t {
    // From the library.
    open = 'o',       // the file's name in /dev/gadget; answered with result
    configure = 'c',  // what was written to a file not configured yet; answered with result
    ack = 'a',        // status stage of a request without data; the request's number
    stall = 's',      // the request was refused; its number
    answer = 'd',     // data stage towards the host; the request's number, then the data
    transfer = 't',   // a write to an IN endpoint; answered with taken
    withdraw = 'w',   // a signal interrupted the write: answered with withdrawn, unless taken went first
    halt = 'h',       // a transfer in the wrong direction on a data endpoint
    clear_halt = 'l',

    // From the cable.
    result = 'r',        // Result
    event = 'e',         // Event, queued as the kernel does
    forced_event = 'E',  // up to event_batch of them, appended whatever is pending
    packet = 'p',        // one packet to an OUT endpoint
    taken = 'k',         // the host has taken the write
    withdrawn = 'W',     // the host never will
};

struct Result {
    std::int32_t error;        // 0, or the error number that the call fails with
    std::uint32_t max_packet;  // packet size of a data endpoint just configured
};

constexpr std::size_t event_size = 12;  // sizeof(usb_gadgetfs_event)
constexpr std::size_t event_batch = 8;

struct Event {
    std::uint8_t record[event_size];  // usb_gadgetfs_event
    std::uint8_t request;             // number of the request, of a setup event
    std::uint8_t can_stall;           // whether the kernel lets a request towards the device be refused
};
static_assert(sizeof(Event) == 14 && std::is_trivially_copyable_v<Event>);

}  // namespace sim::board_protocol
