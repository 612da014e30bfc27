// Sending the packets of one command.
#pragma once

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "io/usb_link.h"
#include "link/packet.h"
#include "platform/fair_lock.h"

// The right to build and write packets, for the length of a scope: one command's packets. Two threads build
// packets; while one holds a run the other waits, so the packets of a command carry consecutive sequence
// numbers, and the camera sees all numbers in the order in which they were drawn. Runs are given in the order
// of asking: a burst of commands holds up the gimbal's packets by one command, not by the burst. The lock of
// the USB link is taken inside a run, never the other way round. UDP reader and gimbal motion threads.
class PacketRun {
  public:
    // Sends a copy of the template, its first payload bytes replaced by those given. It is dropped, its
    // sequence number spent, while the USB link is down; a failed write is not reported either.
    template <std::size_t length>
    void send(std::array<std::uint8_t, length> packet, std::initializer_list<std::uint8_t> payload = {}) {
        assert(payload.size() <= length - link_packet::minimum_size);
        std::copy(payload.begin(), payload.end(), packet.begin() + link_packet::header_size);
        finish_link_packet(packet);
        usb_write_locked(packet);
    }

  private:
    static inline FairLock order_ = fair_lock_initial;
    FairLockGuard hold_{order_};
};
