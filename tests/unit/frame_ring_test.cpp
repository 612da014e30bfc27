// The frame ring over shared memory of the test's own: the definitions below take the place of the system's
// calls and of the picture size's files.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ardenvue.h"
#include "video/frame_buffers.h"
#include "video/picture_size.h"

namespace {

enum class Fault { none, open, size, reserve, map };

struct FakeObjects {
    std::map<std::string, int> objects;  // descriptor by name
    std::string faulty_name;
    Fault fault = Fault::none;
    bool reserve_fails = false;
};

FakeObjects fake;

int reopen(int fd, int access) {
    return open(("/proc/self/fd/" + std::to_string(fd)).c_str(), access);
}

}  // namespace

extern "C" int shm_open(const char* name, int flags, mode_t mode) {
    const bool is_faulty = name == fake.faulty_name;
    if (is_faulty && fake.fault == Fault::open) {
        errno = EACCES;
        return -1;
    }
    fake.reserve_fails = is_faulty && fake.fault == Fault::reserve;
    if (!fake.objects.contains(name)) {
        if ((flags & O_CREAT) == 0) {
            errno = ENOENT;
            return -1;
        }
        EXPECT_EQ(mode, 0600U);
        fake.objects[name] = memfd_create(name, 0);
    }
    // A descriptor that only reads can't be sized, one that only writes can't be mapped.
    return reopen(fake.objects[name], is_faulty && fake.fault == Fault::size  ? O_RDONLY
                                      : is_faulty && fake.fault == Fault::map ? O_WRONLY
                                                                              : O_RDWR);
}

extern "C" int posix_fallocate(int fd, off_t offset, off_t length) {
    return fake.reserve_fails ? ENOSPC : fallocate(fd, 0, offset, length) == 0 ? 0 : errno;
}

void remove_picture_size_files() {}
void publish_picture_size(std::span<const std::uint8_t>) {}

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t ring_size = 60'003'624;
constexpr std::size_t slot_size = 300'018;

Bytes read_object(const char* name, std::size_t offset, std::size_t size) {
    Bytes bytes(size);
    EXPECT_EQ(pread(fake.objects.at(name), bytes.data(), size, static_cast<off_t>(offset)),
              static_cast<ssize_t>(size));
    return bytes;
}

Bytes ring_header() {
    return read_object("ardenvue_framebuffer", 0, 6);
}

Bytes slot(std::size_t index, std::size_t payload_size) {
    return read_object("ardenvue_framebuffer", 24 + index * slot_size, 18 + payload_size);
}

void write_ring(std::size_t offset, const Bytes& bytes) {
    ASSERT_EQ(pwrite(fake.objects.at("ardenvue_framebuffer"), bytes.data(), bytes.size(),
                     static_cast<off_t>(offset)),
              static_cast<ssize_t>(bytes.size()));
}

class FrameRingTest : public testing::Test {
  protected:
    FrameRingTest() {
        fake = {};
        testing::internal::CaptureStderr();
    }
    ~FrameRingTest() override {
        testing::internal::GetCapturedStderr();
        for (const auto& [name, fd] : fake.objects) {
            close(fd);
        }
    }
};

TEST_F(FrameRingTest, CountsOnPastTheLastFrameNumber) {
    ASSERT_EQ(init_frame_buffers(), 0);
    for (std::uint32_t number = 0; number < 65'536; ++number) {
        publish_video_frame(Bytes{0xAB});
    }
    // 65,536 frames are 327 rounds and 136 slots.
    EXPECT_EQ(ring_header(), (Bytes{0, 0, 0xFF, 0xFF, 136, 0}));
    publish_video_frame(Bytes{0xCD});
    EXPECT_EQ(ring_header(), (Bytes{0, 0, 0, 0, 137, 0}));
    EXPECT_EQ(slot(135, 1), (Bytes{1, 0, 0, 0, 0xFF, 0xFF, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0xAB}));
    EXPECT_EQ(slot(136, 1), (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0xCD}));
}

TEST_F(FrameRingTest, TakesTheLongestPayload) {
    ASSERT_EQ(init_frame_buffers(), 0);
    Bytes payload(65'535);
    for (std::size_t i = 0; i < payload.size(); ++i) {
        payload[i] = static_cast<std::uint8_t>(i * 31 >> 3);
    }
    publish_video_frame(payload);
    Bytes expected = {0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    expected.insert(expected.end(), payload.begin(), payload.end());
    EXPECT_EQ(slot(0, payload.size()), expected);
    EXPECT_EQ(slot(1, 0), Bytes(18));
}

// Anybody may write to the header: a slot beyond the last is the first.
TEST_F(FrameRingTest, StaysInsideTheRing) {
    ASSERT_EQ(init_frame_buffers(), 0);
    publish_video_frame(Bytes{1});
    for (const Bytes& index : {Bytes{200, 0}, Bytes{0xFF, 0xFF}}) {
        write_ring(4, index);
        publish_video_frame(Bytes{2, 3});
        EXPECT_EQ(slot(0, 2),
                  (Bytes{2, 0, 0, 0, ring_header()[2], 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 3}));
        EXPECT_EQ(ring_header()[4], 1);
    }
}

TEST_F(FrameRingTest, ClearsWholeWhenAskedAndCountsOn) {
    ASSERT_EQ(init_frame_buffers(), 0);
    for (std::uint8_t number = 0; number < 3; ++number) {
        publish_video_frame(Bytes{number});
    }
    write_ring(0, {0x00, 0x80});  // any value but zero
    write_ring(ring_size - 1, {0x77});
    publish_video_frame(Bytes{0xEE});
    EXPECT_EQ(ring_header(), (Bytes{0, 0, 3, 0, 1, 0}));
    EXPECT_EQ(slot(0, 1), (Bytes{1, 0, 0, 0, 3, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0xEE}));
    EXPECT_EQ(slot(1, 1), Bytes(19));
    EXPECT_EQ(read_object("ardenvue_framebuffer", ring_size - 1, 1), Bytes{0});
}

TEST_F(FrameRingTest, FailsWhenAnObjectCannotBeHad) {
    for (const char* name : {"ardenvue_framebuffer", "ardenvue_framebuffer_transcoding"}) {
        for (const Fault fault : {Fault::open, Fault::size, Fault::reserve, Fault::map}) {
            fake.faulty_name = name;
            fake.fault = fault;
            EXPECT_NE(init_frame_buffers(), 0) << name << " fault " << static_cast<int>(fault);
        }
    }
}

}  // namespace
