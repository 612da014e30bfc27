// The writer of the stick inputs and its guard: whatever happens to the process that holds a stick, the
// gimbal must not go on moving.
#include "ardenvue/sticks.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "tests/blackbox/harness.h"

namespace {

using namespace std::chrono_literals;
using blackbox::eventually;
using Inputs = std::array<double, 3>;

constexpr Inputs centred{};
constexpr Inputs held{0.5, -1, 0};

class Sticks : public testing::Test {
  protected:
    ~Sticks() override { shm_unlink(name_.c_str()); }

    const char* name() const { return name_.c_str(); }
    std::string path() const { return "/dev/shm" + name_; }

    ArdenvueSticks* open() {
        ArdenvueSticks* sticks = nullptr;
        char reason[512];
        EXPECT_EQ(ardenvue_sticks_open(&sticks, name(), STICK_GUARD_PATH, reason, sizeof reason), 0)
            << reason;
        return sticks;
    }

    // As the service reads them.
    Inputs inputs() const {
        Inputs read{9, 9, 9};
        std::ifstream{path(), std::ios::binary}.seekg(1056).read(reinterpret_cast<char*>(&read), sizeof read);
        return read;
    }

    bool has_guard() const { return guard() != 0; }
    // The process that holds this test's record for its writer; 0: none.
    pid_t guard() const {
        for (const auto& entry : std::filesystem::directory_iterator{"/proc"}) {
            std::ifstream words{entry.path() / "cmdline"};
            std::string program;
            std::string record;
            std::getline(std::getline(words, program, '\0'), record, '\0');
            if (program.ends_with("ardenvue-stick-guard") && record == name_) {
                return std::stoi(entry.path().filename());
            }
        }
        return 0;
    }

    // A process of its own that holds a stick until it is ended; writes what ardenvue_sticks_set returned
    // into a pipe when that was not 0.
    pid_t hold_a_stick(int& said) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const pid_t process = fork();
        if (process == 0) {
            ArdenvueSticks* const sticks = open();
            while (sticks != nullptr) {
                const int code = ardenvue_sticks_set(sticks, held[0], held[1], held[2]);
                if (code != 0 && write(ends[1], &code, sizeof code) < 0) {
                    _exit(1);
                }
                usleep(20'000);
            }
            _exit(1);
        }
        close(ends[1]);
        said = ends[0];
        return process;
    }

  private:
    const std::string name_ = "/ardenvue-sticks-test." + std::to_string(getpid());
};

TEST_F(Sticks, TheRecordIsMadeAndTheInputsHeldWithinTheirLimits) {
    std::ofstream{path(), std::ios::binary} << std::string(1500, 'x');  // of another writer, cut short
    ArdenvueSticks* const sticks = open();
    EXPECT_EQ(std::filesystem::file_size(path()), 1504U);
    ASSERT_NE(sticks, nullptr);
    EXPECT_EQ(inputs(), centred);
    // Set until they stand there: on a busy machine the guard may be quicker than the next line.
    const auto become = [&](const Inputs& set, const Inputs& expected) {
        return eventually(
            [&] { return ardenvue_sticks_set(sticks, set[0], set[1], set[2]) >= 0 && inputs() == expected; });
    };
    EXPECT_TRUE(become({33, -std::numeric_limits<double>::infinity(), NAN}, {13.65, -13.65, 0}));
    EXPECT_TRUE(become({0.25, -0.0, 1}, {0.25, 0, 1}));

    // Others may cut it short, or unlink it.
    std::filesystem::resize_file(path(), 0);
    EXPECT_TRUE(become({1, 2, 3}, {1, 2, 3}));
    EXPECT_EQ(std::filesystem::file_size(path()), 1504U);
    std::filesystem::remove(path());
    EXPECT_TRUE(become({4, 5, 6}, {4, 5, 6}));

    ardenvue_sticks_close(sticks);
    EXPECT_EQ(inputs(), centred);
    EXPECT_TRUE(eventually([&] { return !has_guard(); }));
}

TEST_F(Sticks, AStickOfAProcessThatWasKilledIsLetGo) {
    int said = -1;
    const pid_t process = hold_a_stick(said);
    ASSERT_TRUE(eventually([&] { return inputs() == held; }));
    const auto killed = std::chrono::steady_clock::now();
    kill(process, SIGKILL);
    EXPECT_TRUE(eventually([&] { return inputs() == centred; }));
    RecordProperty("milliseconds_after_sigkill",
                   static_cast<int>((std::chrono::steady_clock::now() - killed) / 1ms));
    waitpid(process, nullptr, 0);
    close(said);
    EXPECT_TRUE(eventually([&] { return !has_guard(); }));
}

TEST_F(Sticks, AStickOfAProcessThatStandsStillIsLetGoUntilItGoesOn) {
    int said = -1;
    const pid_t process = hold_a_stick(said);
    ASSERT_TRUE(eventually([&] { return inputs() == held; }));
    kill(process, SIGSTOP);
    const auto stopped = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] { return inputs() == centred; }));
    RecordProperty("milliseconds_after_sigstop",
                   static_cast<int>((std::chrono::steady_clock::now() - stopped) / 1ms));

    // One deflection that was under way when it was stopped is not left standing.
    const int record = ::open(path().c_str(), O_RDWR);
    ASSERT_EQ(pwrite(record, held.data(), sizeof held, 1056), static_cast<ssize_t>(sizeof held));
    close(record);
    EXPECT_TRUE(eventually([&] { return inputs() == centred; }));

    kill(process, SIGCONT);
    EXPECT_TRUE(eventually([&] { return inputs() == held; }));
    int code = 0;
    EXPECT_EQ(read(said, &code, sizeof code), static_cast<ssize_t>(sizeof code));
    EXPECT_EQ(code, 1) << "the writer was told";
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    close(said);
    EXPECT_TRUE(eventually([&] { return inputs() == centred && !has_guard(); }));
}

TEST_F(Sticks, WithoutAGuardNothingMoves) {
    ArdenvueSticks* sticks = nullptr;
    char reason[512];
    EXPECT_EQ(ardenvue_sticks_open(&sticks, name(), "/no/such/guard", reason, sizeof reason),
              ARDENVUE_ERROR_GUARD);
    EXPECT_THAT(reason, testing::HasSubstr("/no/such/guard: No such file"));
    EXPECT_EQ(ardenvue_sticks_open(&sticks, name(), "/bin/true", reason, sizeof reason),
              ARDENVUE_ERROR_GUARD);
    EXPECT_THAT(reason, testing::HasSubstr("ended at once"));
    EXPECT_EQ(ardenvue_sticks_open(&sticks, "/a/b", STICK_GUARD_PATH, reason, sizeof reason),
              ARDENVUE_ERROR_SYSTEM);

    sticks = open();
    ASSERT_NE(sticks, nullptr);
    ASSERT_EQ(ardenvue_sticks_set(sticks, 1, 1, 1), 0);
    const pid_t guard_process = guard();
    ASSERT_NE(guard_process, 0);
    kill(guard_process, SIGKILL);
    EXPECT_TRUE(eventually([&] { return ardenvue_sticks_set(sticks, 1, 1, 1) == ARDENVUE_ERROR_GUARD; }));
    EXPECT_EQ(inputs(), centred);
    EXPECT_EQ(ardenvue_sticks_set(sticks, 1, 1, 1), ARDENVUE_ERROR_GUARD);
    EXPECT_EQ(inputs(), centred);
    ardenvue_sticks_close(sticks);
}

}  // namespace
