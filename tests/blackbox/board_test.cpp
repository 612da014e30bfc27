// The simulated board against what the kernel's gadgetfs does (drivers/usb/gadget/legacy/inode.c). In each
// test a small gadget program takes the service's place: this executable, started again with the program's
// name. What it sees it writes to its standard error stream, call by call, and the test expects the whole of
// it.
#include <dirent.h>
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "tests/blackbox/harness.h"

extern "C" ssize_t __read_chk(int fd, void* buffer, std::size_t length, std::size_t capacity);
extern "C" int __open64_2(const char* path, int flags);

namespace blackbox {
namespace {

const Bytes good_configuration = {
    0x00, 0x00, 0x00, 0x00,                                // tag
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,  // full speed
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,  //
    0x07, 0x05, 0x86, 0x02, 0x40, 0x00, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x40, 0x00, 0x00,              //
    0x09, 0x02, 0x20, 0x00, 0x01, 0x02, 0x00, 0xC0, 0x01,  // high speed
    0x09, 0x04, 0x00, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00,  //
    0x07, 0x05, 0x86, 0x02, 0x00, 0x02, 0x00,              //
    0x07, 0x05, 0x02, 0x02, 0x00, 0x02, 0x00,              //
    0x12, 0x01, 0x00, 0x02, 0xFF, 0x00, 0x00, 0x00, 0x34,  // device
    0x12, 0x78, 0x56, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01,  //
};
const Bytes in_configuration = {1, 0, 0, 0, 7, 5, 0x86, 2, 64, 0, 0, 7, 5, 0x86, 2, 0, 2, 0};
const Bytes out_configuration = {1, 0, 0, 0, 7, 5, 0x02, 2, 64, 0, 0, 7, 5, 0x02, 2, 0, 2, 0};

// ---- The gadget programs ----

// Says what a call gave: its result, or the name of its error. Returns the result.
long say(const char* what, long result) {
    const std::string shown = result >= 0 ? std::to_string(result) : strerrorname_np(errno);
    std::fprintf(stderr, "%s %s\n", what, shown.c_str());
    return result;
}

std::string board_directory() {
    const char* directory = std::getenv("ARDENVUE_BOARD");
    return directory == nullptr ? "" : directory;
}

int gadget_file(const char* name) {
    return open((std::string{"/dev/gadget/"} + name).c_str(), O_RDWR);
}

void fail_to_open(const char* name) {
    say(name, gadget_file(name));
}

long put(int fd, const Bytes& bytes) {
    return write(fd, bytes.data(), bytes.size());
}

int open_device() {
    const int fd = gadget_file("20980000.usb");
    put(fd, good_configuration);
    std::fprintf(stderr, "device open\n");
    return fd;
}

int open_endpoint(const char* name, const Bytes& configuration) {
    const int fd = gadget_file(name);
    say(name, put(fd, configuration));
    return fd;
}

// Reads events until one of the type has come; says the types of each read.
usb_gadgetfs_event read_until(int fd, usb_gadgetfs_event_type type) {
    for (;;) {
        std::array<usb_gadgetfs_event, 5> events{};
        const long size = read(fd, events.data(), sizeof events);
        if (size <= 0) {
            say("events", size);
            std::exit(1);
        }
        std::fputs("events", stderr);
        const auto count = static_cast<std::size_t>(size) / sizeof(usb_gadgetfs_event);
        for (std::size_t index = 0; index < count; ++index) {
            std::fprintf(stderr, " %u", events[index].type);
        }
        std::fputs("\n", stderr);
        if (events[count - 1].type == type) {
            return events[count - 1];
        }
    }
}

void list_files() {
    std::fputs("listed:", stderr);
    std::map<std::string, int> names;
    DIR* directory = opendir("/dev/gadget");
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            ++names[entry->d_name];
        }
    }
    closedir(directory);
    for (const auto& [name, count] : names) {
        std::fprintf(stderr, " %s", name.c_str());
    }
    std::fputs("\n", stderr);
}

void configurations() {
    const auto changed = [](std::size_t offset, std::uint8_t value) {
        Bytes bytes = good_configuration;
        bytes[offset] = value;
        return bytes;
    };
    const Bytes short_by_one(good_configuration.begin(), good_configuration.end() - 1);
    const std::pair<const char*, Bytes> writes[] = {
        {"other tag", changed(0, 1)},
        {"not a configuration", changed(5, 4)},
        {"bus-powered bit", changed(11, 0x40)},
        {"remote wakeup", changed(11, 0xE0)},
        {"value 0", changed(9, 0)},
        {"total too long", changed(6, 0xFF)},
        {"high speed too long", changed(38, 0x21)},
        {"two configurations", changed(85, 2)},
        {"device cut", short_by_one},
        {"good", good_configuration},
    };
    fail_to_open("ep6in");
    const int fd = gadget_file("20980000.usb");
    char byte;
    say("read before", read(fd, &byte, 1));
    for (const auto& [what, bytes] : writes) {
        say(what, put(fd, bytes));
    }
    list_files();
    errno = 0;
    const int again = gadget_file("20980000.usb");
    say("open again", again);
    close(fd);
    // What the cable does when the file closes is seen by other processes a moment later.
    while (access((board_directory() + "/dev/gadget/ep1in").c_str(), F_OK) == 0) {
        usleep(1000);
    }
    list_files();
    const int reopened = gadget_file("20980000.usb");
    say("open after close", put(reopened, good_configuration));
}

void events() {
    const int fd = open_device();
    pollfd entry{fd, POLLIN | POLLPRI, 0};
    std::array<usb_gadgetfs_event, 5> events{};
    say("poll", poll(&entry, 1, 60'000));
    say("too small", read(fd, events.data(), 11));
    read_until(fd, GADGETFS_SUSPEND);  // two reads: five events, then the sixth
    read_until(fd, GADGETFS_SETUP);    // ends with the setup, though more is pending
    say("ack", read(fd, nullptr, 0));
    entry.revents = 0;
    say("poll", poll(&entry, 1, 60'000));
    read_until(fd, GADGETFS_DISCONNECT);
}

void unread_events() {
    const int fd = open_device();
    // Two events are on their way; the later one is what is left when the program comes to read.
    while (access("both_sent", F_OK) != 0) {
        usleep(1000);
    }
    read_until(fd, GADGETFS_DISCONNECT);
}

void requests() {
    const int fd = open_device();
    char data[64] = "abcdefgh";
    const auto next = [&] { read_until(fd, GADGETFS_SETUP); };
    next();
    say("answer", write(fd, data, 8));
    next();
    say("longer answer", write(fd, data, 8));
    next();
    say("stall in", read(fd, data, 0));
    next();
    say("ack", read(fd, data, 0));
    next();
    say("stall out", write(fd, data, 0));
    next();
    say("refuse configuration", write(fd, data, 0));
    say("ack", read(fd, data, 0));
    say("nothing asked", write(fd, data, 8));
    next();
    while (access("given_up", F_OK) != 0) {
        usleep(1000);
    }
    say("too late", read(fd, data, 0));
    read_until(fd, GADGETFS_DISCONNECT);
}

void endpoints() {
    const int device = open_device();
    const int early = open_endpoint("ep6in", in_configuration);
    close(early);
    read_until(device, GADGETFS_SUSPEND);
    const int in = gadget_file("ep6in");
    char byte = 0;
    say("read unconfigured", read(in, &byte, 1));
    say("clear unconfigured", ioctl(in, GADGETFS_CLEAR_HALT));
    say("refused", put(in, in_configuration));
    say("bad", put(in, good_configuration));
    say("in", put(in, in_configuration));
    const int out = open_endpoint("ep2out", out_configuration);
    fail_to_open("ep2out");
    say("clear", ioctl(out, GADGETFS_CLEAR_HALT));
    say("wrong way in", read(in, &byte, 1));
    say("wrong way out", write(out, &byte, 1));

    std::array<std::uint8_t, 1024> buffer{};
    for (const char* what : {"packet", "short packet", "empty packet"}) {
        say(what, read(out, buffer.data(), 512));
    }
    say("fortified", __read_chk(out, buffer.data(), 512, sizeof buffer));
    say("two packets", read(out, buffer.data(), buffer.size()));
    std::fprintf(stderr, "last byte %d\n", buffer[1023]);
    say("overflow", read(out, buffer.data(), 100));
    say("write", write(in, "12345", 5));
    say("write nothing", write(in, nullptr, 0));
    say("pulled while reading", read(out, buffer.data(), 512));
    say("read later", read(out, buffer.data(), 512));
    say("write later", write(in, "1", 1));
    say("clear later", ioctl(in, GADGETFS_CLEAR_HALT));
    read_until(device, GADGETFS_DISCONNECT);
    fail_to_open("ep2out");
    close(out);
    close(in);
    read_until(device, GADGETFS_SUSPEND);
    const int fresh = open_endpoint("ep2out", out_configuration);
    say("read again", read(fresh, buffer.data(), 512));
}

struct Blocked {
    int fd;
    bool writes;
};

void* transfer(void* argument) {
    const auto* blocked = static_cast<const Blocked*>(argument);
    char buffer[512] = {};
    if (blocked->writes) {
        [[maybe_unused]] const ssize_t count = write(blocked->fd, buffer, sizeof buffer);
    } else {
        [[maybe_unused]] const ssize_t count = read(blocked->fd, buffer, sizeof buffer);
    }
    return nullptr;
}

void cancellation() {
    const int device = open_device();
    read_until(device, GADGETFS_SUSPEND);
    const int in = open_endpoint("ep6in", in_configuration);
    const int out = open_endpoint("ep2out", out_configuration);
    for (const Blocked blocked : {Blocked{device, false}, Blocked{out, false}, Blocked{in, true}}) {
        pthread_t thread;
        Blocked argument = blocked;
        pthread_create(&thread, nullptr, transfer, &argument);
        usleep(20'000);  // most often it waits by then; cancelled before, it ends at the call's start
        pthread_cancel(thread);
        void* result = nullptr;
        pthread_join(thread, &result);
        std::fprintf(stderr, "%s\n", result == PTHREAD_CANCELED ? "cancelled" : "ended");
    }
    std::array<char, 512> buffer{};
    std::fprintf(stderr, "reading\n");
    say("read", read(out, buffer.data(), buffer.size()));
}

void board_files() {
    say("fortified open", __open64_2("/sys/firmware/devicetree/base/model", O_RDONLY));
    std::string model;
    std::ifstream{"/sys/firmware/devicetree/base/model"} >> model;
    std::fprintf(stderr, "model %s\n", model.c_str());
    std::ofstream{"/run/ardenvue/written"} << "1";
    say("unlink", unlink("/run/ardenvue/written"));
    std::ofstream{"/run/ardenvue/kept"} << "2";
    say("modprobe", system("modprobe gadgetfs > /dev/null 2>&1"));
    say("other command", system("exit 3"));
    const int object = shm_open("/shared", O_RDWR | O_CREAT, 0600);
    say("size", ftruncate(object, 4));
    say("put", write(object, "here", 4));
    say("full", posix_fallocate(object, 0, 4) == ENOSPC ? 1 : 0);
    errno = 0;
    say("not opened", shm_open("/other", O_RDWR | O_CREAT, 0600));
    const std::string board = std::filesystem::path{board_directory()}.filename().string();
    say("the board's own", access(("/dev/shm/" + board + ".shared").c_str(), F_OK));
}

const std::map<std::string, void (*)()> programs = {
    {"configurations", configurations}, {"events", events},
    {"unread_events", unread_events},   {"requests", requests},
    {"endpoints", endpoints},           {"cancellation", cancellation},
    {"board_files", board_files},
};

// ---- The tests ----

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
