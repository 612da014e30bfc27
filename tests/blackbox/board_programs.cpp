#include "tests/blackbox/board_programs.h"

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

}  // namespace

const std::map<std::string, void (*)()> programs = {
    {"configurations", configurations}, {"events", events},
    {"unread_events", unread_events},   {"requests", requests},
    {"endpoints", endpoints},           {"cancellation", cancellation},
    {"board_files", board_files},
};

}  // namespace blackbox
