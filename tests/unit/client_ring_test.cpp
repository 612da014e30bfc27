// The ring reader beside a writer that never waits.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "client/ring_mapping.h"
#include "client/ring_reader.h"

namespace {

using ardenvue::FrameRing;
using ardenvue::FrameSlot;

template <typename Field>
void publish(Field& field, Field value) {
    std::atomic_ref<Field>(field).store(value, std::memory_order_release);
}

std::uint8_t pattern(std::uint16_t number) {
    return static_cast<std::uint8_t>(number % 251);
}

// Writes as the service does: payload, slot header, next slot, newest number.
class Writer {
  public:
    explicit Writer(std::uint16_t first_number = 0) : number_{first_number} { restart(first_number); }

    void restart(std::uint16_t first_number) {
        zero();
        publish(ring_->clear_request, std::uint16_t{1});
        number_ = first_number;
    }

    void clear() { publish(ring_->clear_request, std::uint16_t{1}); }

    void write(std::size_t size) {
        if (ring_->clear_request != 0) {
            zero();
        }
        FrameSlot& slot = ring_->slots[ring_->next_slot];
        for (std::size_t i = 0; i < size; ++i) {
            publish(slot.payload[i], pattern(number_));
        }
        publish(slot.length_low, static_cast<std::uint16_t>(size));
        publish(slot.frame_number, number_);
        for (std::uint8_t& flag : slot.flags) {
            publish(flag, std::uint8_t{1});
        }
        publish(ring_->next_slot, static_cast<std::uint16_t>((ring_->next_slot + 1) % 200));
        publish(ring_->newest_frame_number, number_);
        number_ += 1;
    }

    void write_many(int count) {
        for (int i = 0; i < count; ++i) {
            write(8);
        }
    }

    FrameRing& ring() { return *ring_; }

  private:
    void zero() {
        publish(ring_->clear_request, std::uint16_t{0});
        publish(ring_->newest_frame_number, std::uint16_t{0});
        publish(ring_->next_slot, std::uint16_t{0});
        for (FrameSlot& slot : ring_->slots) {
            publish(slot.length_low, std::uint16_t{0});
            publish(slot.frame_number, std::uint16_t{0});
            for (std::uint8_t& flag : slot.flags) {
                publish(flag, std::uint8_t{0});
            }
        }
    }

    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    // Pages come into being as they are touched.
    std::unique_ptr<FrameRing, Free> ring_{static_cast<FrameRing*>(std::calloc(1, sizeof(FrameRing)))};
    std::uint16_t number_;
};

bool intact(const client::RingFrame& frame) {
    return std::all_of(frame.payload.begin(), frame.payload.end(),
                       [&](std::uint8_t byte) { return byte == pattern(frame.number); });
}

std::vector<int> numbers_of_all(client::RingReader& reader) {
    std::vector<int> numbers;
    while (const auto frame = reader.next()) {
        EXPECT_TRUE(intact(*frame)) << frame->number;
        numbers.push_back(frame->number);
    }
    return numbers;
}

TEST(ClientRing, TakesWhatIsWrittenFromNowOnInOrder) {
    Writer writer;
    client::RingReader from_empty{writer.ring()};
    EXPECT_FALSE(from_empty.next());
    writer.write(65'535);
    const auto first = from_empty.next();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->payload.size(), 65'535u);
    EXPECT_TRUE(intact(*first));

    client::RingReader from_now{writer.ring()};
    EXPECT_FALSE(from_now.next());
    writer.write_many(3);
    EXPECT_THAT(numbers_of_all(from_now), testing::ElementsAre(1, 2, 3));
    EXPECT_THAT(numbers_of_all(from_empty), testing::ElementsAre(1, 2, 3));
    EXPECT_EQ(from_empty.totals().bytes, 65'535u + 3 * 8);
}

TEST(ClientRing, NumbersWrapWhileSlotsDoNot) {
    Writer writer{65'530};
    client::RingReader reader{writer.ring()};
    std::vector<int> expected;
    for (int i = 0; i < 500; i += 50) {
        writer.write_many(50);
        for (const int number : numbers_of_all(reader)) {
            expected.push_back(number);
        }
    }
    ASSERT_EQ(expected.size(), 500u);
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(expected[static_cast<std::size_t>(i)], (65'530 + i) % 65'536);
    }
    EXPECT_EQ(reader.totals().missed, 0u);
    EXPECT_EQ(reader.totals().restarts, 0u);
}

TEST(ClientRing, AReaderThatFellBehindKnowsHowManyFramesItMissed) {
    for (const int behind : {190, 191, 200, 201, 1'000, 60'000}) {
        Writer writer;
        client::RingReader reader{writer.ring()};
        writer.write_many(1);
        ASSERT_TRUE(reader.next());
        writer.write_many(behind);
        const auto frame = reader.next();
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->missed_before, static_cast<std::uint32_t>(frame->number) - 1) << behind;
        const auto rest = numbers_of_all(reader);
        EXPECT_EQ(rest.back(), behind);
        EXPECT_EQ(reader.totals().frames + reader.totals().missed, static_cast<unsigned>(behind) + 1);
        EXPECT_EQ(reader.totals().missed, behind <= 190 ? 0u : static_cast<unsigned>(behind) - 100) << behind;
    }
}

TEST(ClientRing, FramesClearedBeforeTheyWereReadAreMissed) {
    for (const bool looked_in_between : {false, true}) {
        Writer writer;
        client::RingReader reader{writer.ring()};
        writer.write_many(30);
        EXPECT_EQ(numbers_of_all(reader).size(), 30u);
        writer.write_many(5);
        writer.clear();
        if (looked_in_between) {
            EXPECT_EQ(numbers_of_all(reader).size(), 5u);
        }
        writer.write_many(2);
        EXPECT_THAT(numbers_of_all(reader), testing::ElementsAre(35, 36));
        EXPECT_EQ(reader.totals().missed, looked_in_between ? 0u : 5u);
        EXPECT_EQ(reader.totals().restarts, 0u);
    }
}

TEST(ClientRing, ARestartedServiceIsNoLoss) {
    for (const bool saw_it_empty : {false, true}) {
        Writer writer;
        client::RingReader reader{writer.ring()};
        writer.write_many(77);
        numbers_of_all(reader);
        writer.restart(0);
        if (saw_it_empty) {
            EXPECT_FALSE(reader.next());
        }
        writer.write_many(2);
        EXPECT_THAT(numbers_of_all(reader), testing::ElementsAre(0, 1));
        EXPECT_EQ(reader.totals().restarts, 1u);
        EXPECT_EQ(reader.totals().missed, 0u);
    }
}

TEST(ClientRing, ARingFullOfNonsenseIsReadWithoutHarm) {
    struct Case {
        const char* what;
        void (*spoil)(FrameRing&);
        std::size_t frames_left;
    };
    const Case cases[] = {
        {"next slot past the ring", [](FrameRing& ring) { ring.next_slot = 200; }, 0},
        {"newest number of no slot", [](FrameRing& ring) { ring.newest_frame_number = 40'000; }, 0},
        {"length past the slot", [](FrameRing& ring) { ring.slots[5].length_high = 0xFFFF; }, 9},
        {"length of nothing", [](FrameRing& ring) { ring.slots[5].length_low = 0; }, 9},
        {"another frame's number", [](FrameRing& ring) { ring.slots[5].frame_number = 4; }, 9},
        {"a slot never written", [](FrameRing& ring) { ring.slots[5].flags[0] = 0; }, 9},
        {"all ones",
         [](FrameRing& ring) { std::fill_n(reinterpret_cast<std::uint8_t*>(&ring), sizeof ring, 0xFF); }, 0},
    };
    for (const Case& c : cases) {
        Writer writer;
        client::RingReader reader{writer.ring()};
        writer.write_many(10);
        c.spoil(writer.ring());
        EXPECT_EQ(numbers_of_all(reader).size(), c.frames_left) << c.what;
        EXPECT_EQ(reader.totals().missed, c.frames_left == 0 ? 0u : 1u) << c.what;
    }
}

// A signal stops the reader in the middle of a copy while the writer laps the whole ring.
TEST(ClientRing, AFrameOverwrittenWhileItIsCopiedIsNotReturned) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP()
        << "ThreadSanitizer holds signals back until the next system call: nothing would interrupt a copy";
#endif
    static Writer* interrupting = nullptr;
    static volatile std::sig_atomic_t laps = 0;
    Writer writer;
    interrupting = &writer;
    client::RingReader reader{writer.ring()};
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) {
        for (int i = 0; i < 200; ++i) {
            interrupting->write(5'000);
        }
        laps = laps + 1;
    };
    sigaction(SIGALRM, &action, &former);
    std::uint64_t torn = 0;
    while (laps < 200) {
        const int laps_before = laps;
        const itimerval in_the_middle{{}, {0, 200}};
        setitimer(ITIMER_REAL, &in_the_middle, nullptr);
        while (const auto frame = reader.next()) {
            torn += intact(*frame) ? 0 : 1;
        }
        while (laps == laps_before) {
            usleep(10);
        }
    }
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_EQ(torn, 0u);
    EXPECT_GT(reader.totals().frames, 0u);
}

// What is read and what is missed add up while the writer runs beside the reader.
TEST(ClientRing, EveryFrameOfARunningWriterIsReadOrCounted) {
    constexpr unsigned frames = 10'000;
    Writer writer;
    writer.write(4);
    client::RingReader reader{writer.ring()};
    std::atomic<bool> done{false};
    std::thread thread{[&] {
        for (unsigned i = 0; i < frames; ++i) {
            writer.write(i % 100 == 0 ? 20'000 : 4);
        }
        done.store(true);
    }};
    std::uint64_t torn = 0;
    std::uint64_t wrong_gap = 0;
    std::uint32_t expected = 1;
    for (bool last_round = false; !last_round;) {
        last_round = done.load();
        while (const auto frame = reader.next()) {
            torn += intact(*frame) ? 0 : 1;
            expected += frame->missed_before;
            wrong_gap += frame->number == expected % 65'536 ? 0 : 1;
            expected += 1;
        }
    }
    thread.join();
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(wrong_gap, 0u);
    EXPECT_EQ(reader.totals().frames + reader.totals().missed, frames);
    EXPECT_GT(reader.totals().frames, 0u);
}

TEST(ClientRing, OnlyAnObjectOfTheRingsSizeIsMapped) {
    const std::string absent = "/ardenvue-ring-test-absent-" + std::to_string(getpid());
    EXPECT_FALSE(client::map_ring(absent).ring);
    EXPECT_THAT(client::map_ring(absent).problem, testing::HasSubstr("has not run yet"));

    const std::string name = "/ardenvue-ring-test-" + std::to_string(getpid());
    const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(fd, 0);
    for (const off_t size : {off_t{0}, off_t{60'003'623}, off_t{60'003'624}, off_t{60'003'625}}) {
        ASSERT_EQ(ftruncate(fd, size), 0);
        EXPECT_EQ(client::map_ring(name).ring != nullptr, size == 60'003'624) << size;
    }
    close(fd);
    shm_unlink(name.c_str());
}

}  // namespace
