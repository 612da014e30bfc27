// The simulated board against what the kernel's gadgetfs does (drivers/usb/gadget/legacy/inode.c). In each
// test a small gadget program takes the service's place: this executable, started again with the program's
// name. What it sees it writes to its standard error stream, call by call, and the test expects the whole of
// it.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/blackbox/board_programs.h"
#include "tests/blackbox/harness.h"

namespace blackbox {
namespace {

class Program {
  public:
    explicit Program(const char* name, const std::vector<std::string>& faults = {}) : board_{options()} {
        for (const std::string& fault : faults) {
            board_.set_fault(fault);
        }
        board_.start({std::filesystem::read_symlink("/proc/self/exe").string(), {name}, {}, ""});
    }
    sim::Board& board() { return board_; }
    sim::BoardCable& cable() { return board_.cable(); }
    void wait(const char* text, int times = 1) {
        ASSERT_TRUE(board_.wait_for(text, patience, times)) << text << "\n" << board_.errors();
    }
    void touch(const char* file) { std::ofstream{board_.directory() + "/cwd/" + file} << ""; }
    std::string transcript() {
        board_.wait_for_end(patience);
        return board_.errors();
    }

  private:
    static sim::BoardOptions options() {
        sim::BoardOptions result;
        result.library = BOARD_LIBRARY_PATH;
        result.endpoints = {"ep1in", "ep2out", "ep6in"};
        return result;
    }
    sim::Board board_;
};

TEST(SimulatedBoard, ChecksTheConfigurationAndShowsTheEndpointsAfterIt) {
    Program program{"configurations"};
    EXPECT_EQ(program.transcript(),
              "ep6in ENOENT\n"
              "read before EINVAL\n"
              "other tag EINVAL\n"
              "not a configuration EINVAL\n"
              "bus-powered bit EINVAL\n"
              "remote wakeup EINVAL\n"
              "value 0 EINVAL\n"
              "total too long EINVAL\n"
              "high speed too long EINVAL\n"
              "two configurations EINVAL\n"
              "device cut EINVAL\n"
              "good 86\n"
              "listed: 20980000.usb ep1in ep2out ep6in\n"
              "open again EBUSY\n"
              "listed: 20980000.usb\n"
              "open after close 86\n");
}

TEST(SimulatedBoard, HandsOutUpToFiveEventsAndStopsAfterASetup) {
    Program program{"events"};
    program.wait("device open\n");
    const sim::GadgetEvent connect = sim::connect_event(sim::Speed::high);
    const sim::GadgetEvent setup = sim::setup_event({0x00, 11, 0, 0, 0});
    ASSERT_TRUE(program.cable().inject(
        {connect, sim::disconnect_event(), connect, sim::disconnect_event(), connect, sim::suspend_event()},
        patience));
    program.wait("events 1 2 1 2 1\nevents 4\n");
    ASSERT_TRUE(program.cable().inject({connect, setup, sim::disconnect_event()}, patience));
    EXPECT_EQ(program.transcript(),
              "device open\npoll 1\ntoo small EINVAL\nevents 1 2 1 2 1\nevents 4\nevents 1 3\n"
              "ack EIDRM\npoll 1\nevents 2\n");
}

TEST(SimulatedBoard, VoidsUnreadEventsAsTheKernelDoes) {
    Program program{"unread_events"};
    program.cable().set_event_patience(Milliseconds{0});
    program.wait("device open\n");
    ASSERT_TRUE(program.cable().plug(sim::Speed::high));
    program.cable().pull();
    program.touch("both_sent");
    EXPECT_EQ(program.transcript(), "device open\nevents 2\n");
}

TEST(SimulatedBoard, TellsAcksAnswersAndStallsApart) {
    Program program{"requests"};
    program.wait("device open\n");
    sim::BoardCable& cable = program.cable();
    ASSERT_TRUE(cable.plug(sim::Speed::high));
    const auto ask = [&](const sim::SetupPacket& setup) { return cable.control(setup, patience); };
    sim::ControlResult result = ask({0xC0, 1, 0, 0, 64});
    EXPECT_EQ(std::string(result.data.begin(), result.data.end()), "abcdefgh");
    result = ask({0xC0, 1, 0, 0, 3});
    EXPECT_EQ(std::string(result.data.begin(), result.data.end()), "abc");
    EXPECT_EQ(ask({0xC0, 1, 0, 0, 8}).status, sim::ControlStatus::stalled);
    EXPECT_EQ(ask({0x40, 1, 0, 0, 0}).status, sim::ControlStatus::acknowledged);
    EXPECT_EQ(ask({0x40, 1, 0, 0, 0}).status, sim::ControlStatus::stalled);
    EXPECT_EQ(ask({0x00, 9, 2, 0, 0}).status, sim::ControlStatus::acknowledged);
    // Answered by the kernel, unseen by the program.
    EXPECT_EQ(ask({0x00, 9, 1, 0, 0}).status, sim::ControlStatus::stalled);
    EXPECT_EQ(ask({0x80, 8, 0, 0, 1}).data, Bytes{2});
    EXPECT_EQ(ask({0x80, 6, 0x0100, 0, 8}).data, (Bytes{0x12, 1, 0, 2, 0xFF, 0, 0, 64}));
    EXPECT_EQ(ask({0x80, 6, 0x0700, 0, 4}).data, (Bytes{9, 7, 0x20, 0}));
    EXPECT_EQ(ask({0x80, 6, 0x0600, 0, 64}).data, (Bytes{10, 6, 0, 2, 0xFF, 0, 0, 64, 1, 0}));
    EXPECT_EQ(ask({0x80, 6, 0x0F00, 0, 64}).status, sim::ControlStatus::stalled);
    EXPECT_EQ(cable.control({0x40, 2, 0, 0, 0}, Milliseconds{300}).status, sim::ControlStatus::no_answer);
    cable.pull();
    program.touch("given_up");
    EXPECT_EQ(program.transcript().substr(program.transcript().find("events 3\n")),
              "events 3\nanswer 8\nevents 3\nlonger answer 3\nevents 3\nstall in EL2HLT\n"
              "events 3\nack 0\nevents 3\nstall out EL2HLT\n"
              "events 3\nrefuse configuration ESRCH\nack 0\nnothing asked ESRCH\n"
              "events 3\ntoo late EIDRM\nevents 2\n");
}

TEST(SimulatedBoard, MovesDataAsAnEndpointDoes) {
    Program program{"endpoints"};
    sim::BoardCable& cable = program.cable();
    program.wait("ep6in EINVAL\n");  // not connected, so no speed
    const auto plug = [&] {
        ASSERT_TRUE(cable.plug(sim::Speed::high));
        ASSERT_TRUE(cable.inject({sim::suspend_event()}, patience));
    };
    cable.refuse_configuration("ep6in", ENOSPC);
    plug();
    program.wait("wrong way out");
    ASSERT_TRUE(cable.bulk_out(Bytes(520, 1)));
    ASSERT_TRUE(cable.bulk_out({}));
    ASSERT_TRUE(cable.bulk_out(Bytes(7, 2)));
    Bytes two_packets(1024, 3);
    two_packets.back() = 9;
    ASSERT_TRUE(cable.bulk_out(two_packets));
    ASSERT_TRUE(cable.bulk_out(Bytes(101, 4)));
    EXPECT_EQ(cable.bulk_in(patience), (Bytes{'1', '2', '3', '4', '5'}));
    EXPECT_EQ(cable.bulk_in(patience), Bytes{});
    EXPECT_EQ(cable.clear_halts("ep2out"), 1U);
    EXPECT_EQ(cable.halts("ep6in"), 1U);
    EXPECT_EQ(cable.halts("ep2out"), 1U);
    program.wait("write nothing 0\n");
    cable.pull();
    EXPECT_FALSE(cable.bulk_out(Bytes(1, 1)));
    program.wait("ep2out EBUSY\n", 2);
    plug();
    program.wait("ep2out 18\n", 2);
    ASSERT_TRUE(cable.bulk_out(Bytes(3, 1)));
    std::string transcript = program.transcript();
    for (std::size_t at = 0; (at = transcript.find("events")) != std::string::npos;) {
        transcript.erase(at, transcript.find('\n', at) + 1 - at);
    }
    EXPECT_EQ(
        transcript,
        "device open\nep6in EINVAL\n"
        "read unconfigured ENODEV\nclear unconfigured ENODEV\nrefused ENOSPC\nbad EINVAL\nin 18\n"
        "ep2out 18\nep2out EBUSY\nclear 0\nwrong way in EBADMSG\nwrong way out EBADMSG\n"
        "packet 512\nshort packet 8\nempty packet 0\nfortified 7\ntwo packets 1024\nlast byte 9\n"
        "overflow EOVERFLOW\nwrite 5\nwrite nothing 0\n"
        "pulled while reading ESHUTDOWN\nread later ESHUTDOWN\nwrite later ESHUTDOWN\nclear later ESHUTDOWN\n"
        "ep2out EBUSY\nep2out 18\nread again 3\n");
}

TEST(SimulatedBoard, LetsGoOfACancelledThread) {
    Program program{"cancellation"};
    program.wait("device open\n");
    program.cable().hold_in(true);
    ASSERT_TRUE(program.cable().plug(sim::Speed::high));
    ASSERT_TRUE(program.cable().inject({sim::suspend_event()}, patience));
    program.wait("reading\n");
    ASSERT_TRUE(program.cable().bulk_out(Bytes(5, 1)));
    const std::string transcript = program.transcript();
    EXPECT_EQ(transcript.substr(transcript.find("ep6in")),
              "ep6in 18\nep2out 18\ncancelled\ncancelled\ncancelled\nreading\nread 5\n");
}

TEST(SimulatedBoard, KeepsFilesMemoryAndCommandsToItself) {
    Program program{"board_files", {"shm_space.shared", "shm_open.other"}};
    std::string transcript = program.transcript();
    EXPECT_EQ(
        transcript.substr(transcript.find('\n') + 1),
        "model Raspberry\nunlink 0\nmodprobe 0\nother command 768\nsize 0\nput 4\nfull 1\nnot opened EACCES\n"
        "the board's own 0\n");
    EXPECT_EQ(program.board().run_file("written"), std::nullopt);
    EXPECT_EQ(program.board().run_file("kept"), "2");
    EXPECT_EQ(program.board().setup_commands(), "modprobe gadgetfs > /dev/null 2>&1\n");
    const std::optional<sim::SharedMapping> shared = program.board().shared_memory("shared");
    ASSERT_TRUE(shared);
    EXPECT_EQ(std::string(shared->data.get(), shared->data.get() + shared->size), "here");
}

}  // namespace
}  // namespace blackbox

int main(int argc, char** argv) {
    if (argc > 1) {
        if (const auto program = blackbox::programs.find(argv[1]); program != blackbox::programs.end()) {
            program->second();
            return 0;
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
