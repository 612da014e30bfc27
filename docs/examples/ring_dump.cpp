// A correct reader of the frame ring: writes so many payloads to the standard output, one after the other,
// and says which frames it missed.
//
//   ring_dump ardenvue_framebuffer 300 >video.h264
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include <ardenvue.h>

namespace {

using ardenvue::FrameRing;
using ardenvue::FrameSlot;

// Every load acquires: nothing that is read after it can have been read before it.
template <typename Field>
Field load(const Field& field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

std::uint16_t difference(int newer, int older) {
    return static_cast<std::uint16_t>(newer - older);  // frame numbers wrap at 65,536
}

struct Place {
    std::uint16_t number;
    std::uint16_t slot;
};

// The newest frame; false while there is none, or while the writer is in the middle of publishing one.
bool find_newest(const FrameRing& ring, Place& newest) {
    const std::uint16_t next = load(ring.next_slot);
    newest.slot = static_cast<std::uint16_t>((next + 199) % 200);
    newest.number = load(ring.newest_frame_number);
    const FrameSlot& slot = ring.slots[newest.slot];
    return next < 200 && load(slot.flags[0]) == 1 && load(slot.frame_number) == newest.number &&
           load(ring.next_slot) == next;
}

// Copies one frame. False when it was gone, or was overwritten or cleared meanwhile: the copy is worthless
// then.
bool copy_frame(const FrameRing& ring, const Place& place, std::vector<std::uint8_t>& copy) {
    const FrameSlot& slot = ring.slots[place.slot];
    copy.resize(load(slot.length_low));
    const bool was_there = load(slot.flags[0]) == 1 && load(slot.frame_number) == place.number;
    for (std::size_t i = 0; i < copy.size(); ++i) {
        copy[i] = load(slot.payload[i]);
    }
    // Still the same header, and the writer has not come near: 200 frames later it uses this slot again.
    return was_there && load(slot.flags[0]) == 1 && load(slot.frame_number) == place.number &&
           difference(load(ring.newest_frame_number), place.number) < 199;
}

}  // namespace

int main(int argc, char** argv) {
    const int fd = argc == 3 ? shm_open(argv[1], O_RDONLY, 0) : -1;
    struct stat status {};
    if (fd < 0 || fstat(fd, &status) != 0 || status.st_size != static_cast<off_t>(sizeof(FrameRing))) {
        std::fputs("usage: ring_dump RING FRAMES; the service must have run\n", stderr);
        return 1;
    }
    const void* address = mmap(nullptr, sizeof(FrameRing), PROT_READ, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        std::perror("mmap");
        return 1;
    }
    const FrameRing& ring = *static_cast<const FrameRing*>(address);
    std::vector<std::uint8_t> payload;
    Place last{};
    bool attached = false;
    for (long left = std::atol(argv[2]); left > 0;) {
        Place newest{};
        if (!find_newest(ring, newest) ||
            (attached && newest.number == last.number && newest.slot == last.slot)) {
            usleep(5'000);
            continue;
        }
        const std::uint16_t behind = difference(newest.number, last.number);
        const int slots = (newest.slot + 200 - last.slot) % 200;
        Place wanted{static_cast<std::uint16_t>(last.number + 1),
                     static_cast<std::uint16_t>((last.slot + 1) % 200)};
        if (!attached) {
            wanted = newest;
        } else if (behind % 200 != slots) {
            std::fputs("the ring was cleared, or the service restarted\n", stderr);
            wanted = newest;
        } else if (behind > 190) {
            std::fprintf(stderr, "missed %d frames\n", behind - 1);
            wanted = newest;
        }
        if (copy_frame(ring, wanted, payload)) {
            left -= std::fwrite(payload.data(), 1, payload.size(), stdout) == payload.size() ? 1 : left;
        } else {
            std::fputs("missed 1 frame\n", stderr);
        }
        last = wanted;
        attached = true;
    }
    return 0;
}
