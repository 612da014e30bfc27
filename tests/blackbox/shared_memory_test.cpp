// What other processes may do to the shared memory that the service uses: it flies on, and says what
// happened.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "ardenvue.h"
#include "sim/aircraft/pushes.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;

Bytes picture() {
    return sim::encode_frame(formats::FrameType::video, Bytes(100, 0x5A));
}

Bytes attitude() {
    sim::AircraftState state;
    state.gimbal = {100, 200, 300};
    return sim::encode_frame(formats::FrameType::packets, encode_packet(sim::attitude_push(state)));
}

TEST(SharedMemory, MadeShorterIsTakenUpAgainWhenItHasItsSize) {
    Service service;
    ASSERT_NO_FATAL_FAILURE(service.stream(Milliseconds{20}));
    ASSERT_TRUE(service.send_frames(attitude()));
    ASSERT_TRUE(service.said("shared cam state\n"));
    const struct {
        const char* name;
        std::size_t size;
        std::size_t byte;  // that the next frame or push makes other than 0
    } objects[] = {
        {ardenvue::frame_ring_name, sizeof(ardenvue::FrameRing), 4},  // the next slot
        {ardenvue::camera_state_name, sizeof(ardenvue::CameraState), 0},
    };
    for (const auto& object : objects) {
        SCOPED_TRACE(object.name);
        const FileDescriptor fd{shm_open(service.board().shm_name(object.name).c_str(), O_RDWR, 0)};
        const auto write_both = [&] {
            return service.send_frames(picture()) && service.send_frames(attitude());
        };
        ASSERT_EQ(ftruncate(fd.get(), 0), 0);
        ASSERT_TRUE(write_both());
        ASSERT_TRUE(service.said(std::string{"Shared memory "} + object.name + " was made shorter"));
        ASSERT_EQ(ftruncate(fd.get(), static_cast<off_t>(object.size)), 0);
        ASSERT_TRUE(service.said(std::string{"Shared memory "} + object.name + " has its size again\n"));
        EXPECT_TRUE(eventually([&] {
            std::uint8_t byte = 0;
            return write_both() && pread(fd.get(), &byte, 1, static_cast<off_t>(object.byte)) == 1 &&
                   byte != 0;
        }));
    }
    EXPECT_NE(service.next_status(), "");
    // Any other bus error ends it, one that somebody sends among them.
    ASSERT_EQ(kill(service.board().process(), SIGBUS), 0);
    const std::optional<sim::Ending> ending = service.board().wait_for_end(patience);
    ASSERT_TRUE(ending);
    EXPECT_TRUE(ending->by_signal);
    EXPECT_EQ(ending->code, SIGBUS);
}

// An object that somebody else owns, or that is no file, is not taken: its owner could end the flight, or
// move the gimbal.
TEST(SharedMemory, OfStrangersIsRefused) {
    const auto give_away = [](const std::string& path) { return chown(path.c_str(), 65'534, 65'534) == 0; };
    const auto make_pipe = [](const std::string& path) {
        return unlink(path.c_str()) == 0 && mkfifo(path.c_str(), 0600) == 0;
    };
    struct Case {
        std::function<bool(const std::string&)> spoil;
        const char* shown;
    };
    std::vector<Case> cases{{make_pipe, "a pipe of user "}};
    if (geteuid() == 0) {
        cases.push_back({give_away, "a file of user 65534, "});
    }
    for (const Case& each : cases) {
        Service service;
        ASSERT_NO_FATAL_FAILURE(service.stream());
        ASSERT_TRUE(service.send_frames(attitude()));
        ASSERT_TRUE(service.said("shared cam state\n"));
        const auto refused = [&](const char* name) {
            return service.said(std::string{"Shared memory "} + name + " refused: " + each.shown);
        };
        const auto restart_with = [&](const char* name) {
            service.stop_keep_alive();
            service.board().kill();
            ASSERT_TRUE(each.spoil("/dev/shm" + service.board().shm_name(name)));
            service.start();
        };
        ASSERT_NO_FATAL_FAILURE(restart_with(ardenvue::rc_raw_state_name));
        EXPECT_TRUE(refused(ardenvue::rc_raw_state_name));
        ASSERT_NO_FATAL_FAILURE(restart_with(ardenvue::camera_state_name));
        ASSERT_NO_FATAL_FAILURE(service.stream());
        ASSERT_TRUE(service.send_frames(attitude()));
        EXPECT_TRUE(refused(ardenvue::camera_state_name));
        EXPECT_NE(service.next_status(), "");
        ASSERT_NO_FATAL_FAILURE(restart_with(ardenvue::frame_ring_name));
        EXPECT_TRUE(refused(ardenvue::frame_ring_name));
        EXPECT_EQ(service.end_code(), 2);
    }
}

}  // namespace
