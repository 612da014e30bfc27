// A correct reader of the frame ring: writes so many payloads to the standard output, one after the other,
// and says which frames it missed. It begins, and after a loss goes on, where a decoder can: at a sequence
// parameter set.
//
//   ring_dump ardenvue_framebuffer 300 >video.h264
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>
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

enum class Ring { empty, unsettled, holds_frames };

// The newest frame. There is none after a clear and after a start; the writer may be in the middle of
// publishing one.
Ring look(const FrameRing& ring, Place& newest) {
    const std::uint16_t next = load(ring.next_slot);
    newest.slot = static_cast<std::uint16_t>((next + 199) % 200);
    newest.number = load(ring.newest_frame_number);
    const FrameSlot& slot = ring.slots[newest.slot];
    if (next == 0 && newest.number == 0 && load(slot.flags[0]) == 0) {
        return Ring::empty;
    }
    const bool is_there = next < 200 && load(slot.flags[0]) == 1 &&
                          load(slot.frame_number) == newest.number && load(ring.next_slot) == next;
    return is_there ? Ring::holds_frames : Ring::unsettled;
}

// The first frame of the run that the newest belongs to. A clear and a start begin one in slot 0, with the
// parameter sets perhaps; it is gone once the run has used all slots.
Place first_of_run(const FrameRing& ring, const Place& newest) {
    const Place first{difference(newest.number, newest.slot), 0};
    const FrameSlot& slot = ring.slots[0];
    return load(slot.flags[0]) == 1 && load(slot.frame_number) == first.number ? first : newest;
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

// Where the first sequence parameter set begins (nal_unit_type 7, ITU-T H.264, 7.4.1), start code included;
// the payload's size when there is none.
std::size_t parameter_set(const std::vector<std::uint8_t>& payload) {
    for (std::size_t i = 0; i + 3 < payload.size(); ++i) {
        if (payload[i] == 0 && payload[i + 1] == 0 && payload[i + 2] == 1 && (payload[i + 3] & 0x1F) == 7) {
            return i > 0 && payload[i - 1] == 0 ? i - 1 : i;
        }
    }
    return payload.size();
}

// Follows the frames of a ring.
class Reader {
  public:
    explicit Reader(const FrameRing& ring) : ring_{ring} {}

    // The next payload; false when there is nothing new.
    bool next(std::vector<std::uint8_t>& payload) {
        Place newest{};
        const Ring state = look(ring_, newest);
        if (state == Ring::empty && followed_) {
            lose("the ring was cleared, or the service restarted", 0);
        }
        if (state != Ring::holds_frames ||
            (followed_ && newest.number == last_.number && newest.slot == last_.slot)) {
            return false;
        }
        last_ = following(newest);
        followed_ = true;
        if (copy_frame(ring_, last_, payload)) {
            return true;
        }
        lose(nullptr, 1);
        followed_ = true;
        return false;
    }

    // True once after each loss: what comes next has no part in what came before.
    bool lost_thread() { return std::exchange(lost_thread_, false); }
    unsigned missed() const { return missed_; }

  private:
    Place following(const Place& newest) {
        const unsigned behind = difference(newest.number, last_.number);
        const unsigned slots = (newest.slot + 200U - last_.slot) % 200;
        if (!followed_) {
            return begin_run(newest);
        }
        if (behind % 200 != slots) {
            lose("the ring was cleared, or the service restarted", 0);
            return begin_run(newest);
        }
        if (behind > 190) {
            lose(nullptr, behind - 1);
            return newest;
        }
        return {static_cast<std::uint16_t>(last_.number + 1),
                static_cast<std::uint16_t>((last_.slot + 1) % 200)};
    }

    // A clear keeps the numbers, so they tell what was lost in it; a restart begins them anew.
    Place begin_run(const Place& newest) {
        const Place first = started_ ? first_of_run(ring_, newest) : newest;
        const unsigned gap = difference(first.number, last_.number);
        if (started_ && gap > 1 && gap < 32'768) {
            lose(nullptr, gap - 1);
        }
        started_ = true;
        return first;
    }

    void lose(const char* what, unsigned frames) {
        if (what != nullptr) {
            std::fprintf(stderr, "%s\n", what);
        }
        if (frames > 0) {
            std::fprintf(stderr, "missed %u frames\n", frames);
        }
        missed_ += frames;
        lost_thread_ = true;
        followed_ = false;
    }

    const FrameRing& ring_;
    Place last_{};
    bool started_ = false;   // a frame was read, or passed over
    bool followed_ = false;  // last_ is of the present run
    bool lost_thread_ = true;
    unsigned missed_ = 0;
};

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
    Reader reader{*static_cast<const FrameRing*>(address)};
    std::vector<std::uint8_t> payload;
    bool waits_for_parameter_set = true;
    for (long left = std::atol(argv[2]); left > 0;) {
        if (!reader.next(payload)) {
            usleep(5'000);
            continue;
        }
        waits_for_parameter_set = reader.lost_thread() || waits_for_parameter_set;
        const std::size_t begin = waits_for_parameter_set ? parameter_set(payload) : 0;
        if (begin == payload.size()) {
            continue;
        }
        waits_for_parameter_set = false;
        if (std::fwrite(payload.data() + begin, 1, payload.size() - begin, stdout) !=
                payload.size() - begin ||
            std::fflush(stdout) != 0) {
            std::perror("standard output");
            return 1;
        }
        --left;
    }
    if (reader.missed() > 0) {
        std::fprintf(stderr, "missed %u frames in all\n", reader.missed());
    }
    return 0;
}
