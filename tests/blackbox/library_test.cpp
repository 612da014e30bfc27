// The library against the service on a simulated board, with a camera that answers.
#include <sys/wait.h>

#include <csignal>

#include "tests/blackbox/ctl_stage.h"

namespace {

using namespace ctl_stage;

const int limit = static_cast<int>(patience.count());

class Library : public Ctl {
  protected:
    static ctl::Link open() {
        ctl::BoardOptions board;
        board.status_port = stage().port();
        ctl::Link link;
        EXPECT_EQ(ctl::open_link(board, link), ctl::done);
        return link;
    }

    // How often the camera was told each gimbal motion.
    static std::uint32_t motions(const std::string& values) {
        std::uint32_t times = 0;
        for (const sim::CommandRecord& command : stage().camera().commands()) {
            times += command.meaning == "gimbal relative " + values ? command.times : 0;
        }
        return times;
    }
};

TEST_F(Library, CommandsAreConfirmedAndTheStateIsTyped) {
    const ctl::Link link = open();
    const std::string ring = stage().service().board().shm_name(ardenvue::frame_ring_name);
    ASSERT_EQ(ardenvue_link_watch_frames(link.get(), ring.c_str()), 0);
    ardenvue_link_keep_present(link.get(), true);

    // The first report of any kind is enough to be heard.
    ASSERT_GT(ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, limit), 0);
    const int first = ardenvue_set_shutter(link.get(), 1.0 / 240);
    EXPECT_GT(ardenvue_confirm(link.get(), first, limit), 0) << ardenvue_link_problem(link.get());
    const int iso = ardenvue_set_iso(link.get(), 3200);
    EXPECT_EQ(ardenvue_confirm(link.get(), iso, limit), ARDENVUE_CAME);
    const int again = ardenvue_send(link.get(), "iso 3200");
    EXPECT_EQ(ardenvue_confirm(link.get(), again, limit), ARDENVUE_WAS_THERE);
    EXPECT_EQ(ardenvue_confirm(link.get(), ardenvue_calibrate_horizon(link.get()), limit),
              ARDENVUE_ERROR_NOT_REPORTED);

    ArdenvueStatus status;
    ASSERT_EQ(ardenvue_link_status(link.get(), &status), 0);
    EXPECT_STREQ(status.camera_model, "Phantom 4 Pro");
    EXPECT_EQ(status.iso_set, 3200);
    EXPECT_DOUBLE_EQ(status.shutter_set, 1.0 / 240);
    EXPECT_DOUBLE_EQ(status.battery_temperature, 31.2);
    EXPECT_TRUE(eventually([&] {
        ardenvue_link_wait(link.get(), ARDENVUE_ANY_REPORT, 10);
        return ardenvue_link_state(link.get()) == ARDENVUE_LINK_LIVE;
    }));
    EXPECT_TRUE(stage().service().said("Main application found"));

    ArdenvueHistogram histogram;
    EXPECT_GT(ardenvue_confirm(link.get(), ardenvue_set_histogram(link.get(), true), limit), 0);
    EXPECT_GT(ardenvue_link_wait(link.get(), ARDENVUE_HISTOGRAM, limit), 0);
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), 0);
    EXPECT_GT(ardenvue_confirm(link.get(), ardenvue_set_histogram(link.get(), false), limit), 0);
    EXPECT_EQ(ardenvue_link_histogram(link.get(), &histogram), ARDENVUE_ERROR_NONE_YET);
}

TEST_F(Library, TheGimbalStopsWhenTheProcessWithTheStickStopsOrDies) {
    const std::string record = stage().service().board().shm_name(ardenvue::rc_raw_state_name);
    const pid_t process = fork();
    if (process == 0) {
        ArdenvueSticks* sticks = nullptr;
        if (ardenvue_sticks_open(&sticks, record.c_str(), STICK_GUARD_PATH, nullptr, 0) != 0) {
            _exit(1);
        }
        for (;; usleep(20'000)) {
            ardenvue_sticks_set(sticks, 0.5, 0, 0);
        }
    }
    // True when motions with these values come after the signal.
    const auto follows = [process](int signal, const char* values) {
        const std::uint32_t before = motions(values);
        kill(process, signal);
        return eventually([&] { return motions(values) > before; });
    };
    EXPECT_TRUE(follows(0, "500 0 0"));
    EXPECT_TRUE(follows(SIGSTOP, "0 0 0"));
    EXPECT_TRUE(follows(SIGCONT, "500 0 0"));
    EXPECT_TRUE(follows(SIGKILL, "0 0 0"));
    waitpid(process, nullptr, 0);
}

}  // namespace
