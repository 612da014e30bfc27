// What waiting for video costs a main application: a ring is written at 60 frames/s, and read through the
// library.
//   client_video [SECONDS]
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "ardenvue.h"
#include "ardenvue/video.h"
#include "bench/campaign.h"

namespace {

using ardenvue::FrameRing;

constexpr auto frame_time = std::chrono::microseconds{16'667};
constexpr std::size_t frame_size = 30'000;

std::int64_t nanoseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// A frame begins with the time at which it is there.
void write(FrameRing& ring, std::uint16_t number) {
    ardenvue::FrameSlot& slot = ring.slots[ring.next_slot];
    const std::int64_t now = nanoseconds(CLOCK_MONOTONIC);
    std::memcpy(slot.payload, &now, sizeof now);
    slot.length_low = frame_size;
    __atomic_store_n(&slot.frame_number, number, __ATOMIC_RELEASE);
    std::fill_n(slot.flags, sizeof slot.flags, std::uint8_t{1});
    __atomic_store_n(&ring.next_slot, static_cast<std::uint16_t>((ring.next_slot + 1) % 200),
                     __ATOMIC_RELEASE);
    __atomic_store_n(&ring.newest_frame_number, number, __ATOMIC_RELEASE);
}

}  // namespace

int main(int argc, char** argv) {
    const int frames = 60 * std::max(1, argc > 1 ? std::atoi(argv[1]) : 10);
    const std::string name = "/ardenvue-client-video-" + std::to_string(getpid());
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    void* const memory = ftruncate(fd, sizeof(FrameRing)) != 0
                             ? MAP_FAILED
                             : mmap(nullptr, sizeof(FrameRing), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ArdenvueVideo* video = nullptr;
    const bool is_open = memory != MAP_FAILED &&
                         ardenvue_video_open(&video, name.c_str(), ARDENVUE_START_NEXT, nullptr, 0) == 0;
    if (!is_open) {
        std::perror("ring");
        shm_unlink(name.c_str());
        return 1;
    }
    ardenvue_video_go_on_at_once(video, true);
    std::thread writer{[&] {
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < frames; ++i) {
            std::this_thread::sleep_until(next += frame_time);
            write(*static_cast<FrameRing*>(memory), static_cast<std::uint16_t>(i));
        }
    }};
    const std::int64_t began = nanoseconds(CLOCK_MONOTONIC);
    const std::int64_t cpu_began = nanoseconds(CLOCK_THREAD_CPUTIME_ID);
    std::vector<double> delays;
    ArdenvueFrame frame{};
    while (ardenvue_video_next(video, &frame, 1'000) == 0) {
        std::int64_t written = 0;
        std::memcpy(&written, frame.data, sizeof written);
        delays.push_back(static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - written) / 1e6);
    }
    const auto cpu = static_cast<double>(nanoseconds(CLOCK_THREAD_CPUTIME_ID) - cpu_began);
    const auto took = static_cast<double>(nanoseconds(CLOCK_MONOTONIC) - began);
    writer.join();
    ardenvue_video_close(video);
    shm_unlink(name.c_str());
    std::printf(
        "%zu of %d frames of %zu bytes; added to a frame: median %.2f ms, 95 %% %.2f ms; %.2f %% of a core\n",
        delays.size(), frames, frame_size, campaign::quantile(delays, 0.5), campaign::quantile(delays, 0.95),
        100 * cpu / took);
    return 0;
}
