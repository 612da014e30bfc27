// The client's reader of the frame ring, beside a writer that is honest for a while and then overwrites the
// ring's fields with anything. Honest frames arrive whole, in order, and add up with those that were missed;
// whatever the ring holds, the reader comes to an end and stays inside it.
#include <sys/mman.h>

#include <memory>

#include "client/ring_reader.h"
#include "fuzz.h"

namespace {

using ardenvue::frame_slot_count;
using ardenvue::FrameRing;
using ardenvue::FrameSlot;

// Every byte of an honest frame follows from its number.
std::uint8_t content(std::uint32_t number) {
    return static_cast<std::uint8_t>(number * 37 + 11);
}

struct Writer {
    FrameRing& ring;
    std::uint32_t number = 0;

    void write(std::uint16_t size) {
        FrameSlot& slot = ring.slots[ring.next_slot];
        std::fill_n(slot.payload, size, content(number));
        slot.length_low = size;
        slot.length_high = 0;
        slot.frame_number = static_cast<std::uint16_t>(number);
        std::fill_n(slot.flags, 10, std::uint8_t{1});
        ring.next_slot = static_cast<std::uint16_t>((ring.next_slot + 1) % frame_slot_count);
        ring.newest_frame_number = static_cast<std::uint16_t>(number++);
    }
};

void overwrite(FrameRing& ring, fuzz::Input& input) {
    FrameSlot& slot = ring.slots[input.byte() % frame_slot_count];
    std::uint16_t* const fields[] = {&ring.newest_frame_number, &ring.next_slot,   &ring.clear_request,
                                     &slot.length_low,          &slot.length_high, &slot.frame_number};
    *fields[input.byte() % std::size(fields)] = input.word();
    slot.flags[0] = static_cast<std::uint8_t>(input.byte() % 3);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto& ring = *static_cast<FrameRing*>(
        mmap(nullptr, sizeof(FrameRing), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ring.next_slot = 0;
    ring.newest_frame_number = 0;
    for (FrameSlot& slot : ring.slots) {
        slot.flags[0] = 0;
    }
    Writer writer{ring};
    client::RingReader reader{ring};
    bool honest = true;
    std::uint64_t frames = 0;
    std::uint64_t missed = 0;
    for (fuzz::Input input{data, size}; !input.empty();) {
        const std::uint8_t act = input.byte();
        if (act < 192) {  // so many frames
            for (int i = act % 16 == 15 ? act : act % 16; i > 0 && ring.next_slot < frame_slot_count; --i) {
                writer.write(static_cast<std::uint16_t>(1 + act));
            }
        } else if (act < 240) {
            honest = false;
            overwrite(ring, input);
        }
        std::uint32_t taken = 0;
        while (const auto frame = reader.next()) {
            fuzz::require(++taken <= 65'536, "frames without end");
            fuzz::require(!frame->payload.empty() && frame->payload.size() < 65'536, "payload");
            missed += frame->missed_before;
            if (honest) {
                fuzz::require(frame->number == ((frames + missed) & 0xFFFF), "number");
                fuzz::require(std::ranges::count(frame->payload, content(frame->number)) ==
                                  static_cast<std::ptrdiff_t>(frame->payload.size()),
                              "bytes");
            }
            ++frames;
        }
        fuzz::require(reader.totals().frames == frames && reader.totals().missed >= missed, "totals");
        fuzz::require(
            !honest || (frames + reader.totals().missed == writer.number && reader.totals().restarts == 0),
            "frames and missed ones do not add up");
    }
    return 0;
}
