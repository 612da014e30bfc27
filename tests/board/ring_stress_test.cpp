// The library's reader of the frame ring beside the service's own writer, on several processors at once: the
// writer laps the reader, clears the ring on request, and is killed and started anew wherever it happens to
// be.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "client/ring_mapping.h"
#include "client/ring_reader.h"
#include "platform/file_descriptor.h"
#include "video/frame_buffers.h"

namespace {

using namespace std::chrono_literals;
using ardenvue::FrameRing;
using Clock = std::chrono::steady_clock;

constexpr auto run_time = 20s;
constexpr auto longest_life = 1'500ms;  // of a writer
constexpr std::uint64_t generation_step = std::uint64_t{1} << 40;

// A frame is one word, over and over, which no other frame has; later ones are greater.
constexpr std::size_t longest_frame = 60'000 / sizeof(std::uint64_t);

[[noreturn]] void write_for_ever(std::uint64_t generation) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (freopen("/dev/null", "w", stderr) == nullptr || init_frame_buffers() != 0) {
        _exit(1);
    }
    std::mt19937 random{static_cast<unsigned>(generation)};
    std::vector<std::uint64_t> frame;
    for (std::uint64_t word = generation * generation_step + 1;; ++word) {
        frame.assign(random() % 8 == 0 ? 1 + random() % longest_frame : 1 + random() % 64, word);
        publish_video_frame(
            {reinterpret_cast<const std::uint8_t*>(frame.data()), frame.size() * sizeof word});
        if (random() % 1'000 == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds{random() % 20});  // a reader may catch up
        }
    }
}

// Starts one writer after the other and kills each; ends with its parent's word. A process without threads,
// from which others can be forked.
[[noreturn]] void keep_writers(pid_t parent) {
    std::mt19937 random{1};
    for (std::uint64_t generation = 1; getppid() == parent; ++generation) {
        const pid_t writer = fork();
        if (writer == 0) {
            write_for_ever(generation);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{random() % longest_life.count()});
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
    }
    _exit(0);
}

bool is_intact(std::span<const std::uint8_t> bytes, std::uint64_t& word) {
    std::memcpy(&word, bytes.data(), sizeof word);
    for (std::size_t at = 0; at + sizeof word <= bytes.size(); at += sizeof word) {
        std::uint64_t other = 0;
        std::memcpy(&other, bytes.data() + at, sizeof other);
        if (other != word) {
            return false;
        }
    }
    return bytes.size() % sizeof word == 0;
}

// What a reader without the rules gets: copies of the slot that is about to be written, not looked at again.
std::uint64_t count_torn_without_rules(const FrameRing& ring, const std::atomic<bool>& stop) {
    std::uint64_t torn = 0;
    std::vector<std::uint8_t> copy;
    while (!stop) {
        const auto& slot = ring.slots[__atomic_load_n(&ring.next_slot, __ATOMIC_ACQUIRE) % 200U];
        copy.resize(__atomic_load_n(&slot.length_low, __ATOMIC_ACQUIRE));
        if (copy.size() < sizeof(std::uint64_t)) {
            continue;
        }
        for (std::size_t i = 0; i < copy.size(); ++i) {
            copy[i] = __atomic_load_n(&slot.payload[i], __ATOMIC_ACQUIRE);
        }
        std::uint64_t word = 0;
        torn += is_intact(copy, word) ? 0 : 1;
    }
    return torn;
}

client::RingMapping wait_for_ring() {
    for (const auto end = Clock::now() + 60s; Clock::now() < end; std::this_thread::sleep_for(10ms)) {
        if (client::RingMapping mapping = client::map_ring(ardenvue::frame_ring_name); mapping.ring) {
            return mapping;
        }
    }
    return {};
}

TEST(RingStress, NothingTornBesideAWriterThatLapsClearsAndDies) {
    const pid_t parent = getpid();
    const pid_t keeper = fork();
    if (keeper == 0) {
        keep_writers(parent);
    }
    const client::RingMapping mapping = wait_for_ring();
    ASSERT_TRUE(mapping.ring) << mapping.problem;
    const FileDescriptor object{shm_open(ardenvue::frame_ring_name, O_RDWR, 0)};
    void* const memory =
        mmap(nullptr, sizeof(FrameRing), PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto& request = static_cast<FrameRing*>(memory)->clear_request;

    std::atomic<bool> stop{false};
    std::uint64_t torn_without_rules = 0;
    std::thread careless{[&] { torn_without_rules = count_torn_without_rules(*mapping.ring, stop); }};
    client::RingReader reader{*mapping.ring};
    std::uint64_t torn = 0;
    std::uint64_t out_of_order = 0;
    std::uint64_t clears = 0;
    std::uint64_t last = 0;
    auto next_clear = Clock::now() + 300ms;
    for (const auto end = Clock::now() + run_time; Clock::now() < end;) {
        if (Clock::now() >= next_clear) {
            __atomic_store_n(&request, std::uint16_t{1}, __ATOMIC_RELEASE);
            ++clears;
            next_clear += 300ms;
        }
        const auto frame = reader.next();
        if (!frame) {
            continue;
        }
        std::uint64_t word = 0;
        if (!is_intact(frame->payload, word)) {
            ++torn;
        } else {
            out_of_order += word > last ? 0 : 1;
            last = word;
        }
    }
    stop = true;
    careless.join();
    kill(keeper, SIGTERM);
    waitpid(keeper, nullptr, 0);
    munmap(memory, sizeof(FrameRing));

    std::printf(
        "ring: %llu frames read, %llu missed, %u restarts, %llu clears: %llu torn, %llu out of order; "
        "%llu torn for a reader without the rules\n",
        static_cast<unsigned long long>(reader.totals().frames),
        static_cast<unsigned long long>(reader.totals().missed), reader.totals().restarts,
        static_cast<unsigned long long>(clears), static_cast<unsigned long long>(torn),
        static_cast<unsigned long long>(out_of_order), static_cast<unsigned long long>(torn_without_rules));
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(out_of_order, 0u);
    EXPECT_GT(reader.totals().frames, 0u);
    EXPECT_GT(reader.totals().missed, 0u) << "never lapped";
    EXPECT_GT(reader.totals().restarts, 0u);
    EXPECT_GT(torn_without_rules, 0u) << "the writer never came near";
}

}  // namespace
