// ardenvue-sim as it is shipped: exit codes, report and files that scripts rely on.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class Simulator : public testing::Test {
  protected:
    const fs::path directory = testing::TempDir() + "simulator." + std::to_string(getpid());
    std::string said;
    int code = -1;

    void SetUp() override { fs::create_directories(directory); }
    void TearDown() override { fs::remove_all(directory); }

    void run(const std::string& arguments) {
        const std::string command = "exec 2>&1; cd " + directory.string() +
                                    "; env --default-signal=HUP " SIM_PATH " run " + arguments;
        std::FILE* const output = popen(command.c_str(), "r");
        ASSERT_NE(output, nullptr);
        std::array<char, 4096> buffer{};
        said.clear();
        for (std::size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), output)) > 0;) {
            said.append(buffer.data(), count);
        }
        const int status = pclose(output);
        code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string file(const char* name) const {
        std::ifstream stream(directory / name);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(Simulator, RunsTheServiceAndReports) {
    run("--seconds 3 --fault unplug@2:0.1 --fault corrupt --fault garbage --report report --log log "
        "--video-times times "
        "--board-dir board -- -s 5999");
    EXPECT_EQ(code, 0) << said;
    EXPECT_THAT(said,
                AllOf(HasSubstr("the service ended with exit code 3, as it must"), HasSubstr("All is well."),
                      HasSubstr("Live stream video resolution changed to 1280x720")));
    EXPECT_THAT(
        file("report"),
        AllOf(HasSubstr("RESULT=well\n"), HasSubstr("SERVICE_STARTS=2\n"), Not(HasSubstr("VIDEO_FRAMES=0\n")),
              Not(HasSubstr("PUSHES_CORRUPTED=0\n")), HasSubstr("PACKETS_RECEIVED=0\n")));
    EXPECT_THAT(file("log"), HasSubstr("| camera status\n"));
    // Pictures 0, 1, 2 …, and from 0 again where the service was started anew while there was time.
    std::istringstream times{file("times")};
    unsigned expected = 0;
    unsigned pictures = 0;
    double before = 0;
    double at = 0;
    for (unsigned number = 0; times >> number >> at; before = at) {
        EXPECT_TRUE(number == expected || number == 0) << number << " after " << expected;
        EXPECT_GT(at, before);
        expected = number + 1;
        ++pictures;
    }
    EXPECT_GE(pictures, 30u);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_THAT(at, testing::AllOf(testing::Gt(0), testing::Le(static_cast<double>(now.tv_sec) + 1)));
    const std::string board = file("board/env");
    EXPECT_THAT(board,
                AllOf(HasSubstr("STATUS_PORT=5999\n"), HasSubstr("RELAY_PORT="), HasSubstr("RUN_DIR=/")));
    const std::string ring = board.substr(board.find("FRAME_RING=") + 11);
    EXPECT_FALSE(fs::exists("/dev/shm" + ring.substr(0, ring.find('\n')))) << "left behind";
}

TEST_F(Simulator, StopsWhenTold) {
    for (const char* signal : {"INT", "TERM", "HUP"}) {
        run(std::string{
                "--no-video --report report >output & until grep -qsE 'enumerated|PROBLEM' output; do "
                "sleep 0.1; done; kill -"} +
            signal + " $!; wait $!; code=$?; cat output; rm output; (exit $code)");
        EXPECT_EQ(code, 0) << said;
        EXPECT_THAT(said, HasSubstr("All is well."));
        EXPECT_THAT(file("report"), AllOf(HasSubstr("RESULT=well\n"), HasSubstr("VIDEO_FRAMES=0\n")));
    }
}

TEST_F(Simulator, FailsWhenTheServiceDoes) {
    run("-- -s 0");
    EXPECT_EQ(code, 1);
    EXPECT_THAT(said, AllOf(HasSubstr("Destination host or port not set\n"),
                            HasSubstr("PROBLEM: the service ended with exit code 1\n")));
}

TEST_F(Simulator, SeesTheServiceRefuseFullSpeed) {
    run("--fault full-speed");
    EXPECT_EQ(code, 0) << said;
    EXPECT_THAT(said, AllOf(HasSubstr("read failed\n"), HasSubstr("exit code 3, as it must")));
}

TEST_F(Simulator, SaysWhatItCannotDo) {
    std::ofstream(directory / "empty") << "";
    const std::string empty = (directory / "empty").string();
    const std::pair<std::string, int> cases[] = {
        {"--fault fire", 64},   {"--clip /none", 64},     {"--seconds 0", 64},
        {"--clip " + empty, 2}, {"--replay " + empty, 2}, {"--service " + empty, 2},
    };
    for (const auto& [arguments, expected] : cases) {
        run(arguments);
        EXPECT_EQ(code, expected) << arguments << said;
        EXPECT_NE(said, "");
    }
}

}  // namespace
