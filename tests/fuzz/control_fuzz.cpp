// Control requests and data through the gadget layer and the real reader thread, on files that behave as the
// kernel's gadgetfs does. Every request is ended, in the way that the descriptors and USB 2.0, chapter 9, ask
// for; what the host sends arrives, and what it is sent reaches it; after a disconnect nothing is left.
#include <dirent.h>
#include <fcntl.h>
#include <linux/usb/gadgetfs.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "fuzz.h"
#include "io/usb_link.h"
#include "platform/process_end.h"
#include "state/camera_decode.h"
#include "usb/gadget.h"
#include "usb/tcp_relay.h"
#include "video/frame_buffers.h"

namespace {

using Text = std::string;  // bytes

// One open file of /dev/gadget: the service's end and the host's.
struct GadgetFile {
    int host = -1;
    int address = -1;  // of an endpoint; -1 until it is configured
};
std::mutex files_lock;
std::map<int, GadgetFile> files;
std::vector<int> hosts;  // every host's end
std::string directory;   // in place of /dev/gadget
bool has_files_for_both = false;
int ep0 = -1;
int out_host = -1;
int in_host = -1;

// The request that the host waits for. What has an OUT data stage, and SET_CONFIGURATION, can't be stalled.
enum class State { idle, sent, delivered, acknowledged, stalled, taken, answered };
State state = State::idle;
usb_ctrlrequest request{};
Text answer;

bool is_in() {
    return (request.bRequestType & USB_DIR_IN) != 0;
}
bool can_be_stalled() {
    return is_in() || (request.wLength == 0 &&
                       (request.bRequestType != 0 || request.bRequest != USB_REQ_SET_CONFIGURATION));
}

int open_gadget_file(const std::string& name) {
    int ends[2];
    fuzz::require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    const std::lock_guard lock{files_lock};
    files[ends[0]] = {ends[1], -1};
    hosts.push_back(ends[1]);
    ep0 = name == "musb-hdrc" ? ends[0] : ep0;
    return ends[0];
}

ssize_t end_request(State how, ssize_t result, int error = 0) {
    state = how;
    errno = error;
    return result;
}

ssize_t read_control(void* buffer, std::size_t size) {
    if (is_in()) {
        return end_request(State::stalled, -1, EL2HLT);
    }
    const std::size_t read = std::min<std::size_t>(size, request.wLength);
    std::memset(buffer, 0, read);
    return end_request(size == 0 ? State::acknowledged : State::taken, static_cast<ssize_t>(read));
}

bool is_gadget_file(int fd) {
    const std::lock_guard lock{files_lock};
    return files.contains(fd);
}

// gadgetfs gives an endpoint to one caller at a time, and interrupts a transfer for any signal.
std::atomic<int> in_transfer = -1;
struct Transfer {
    explicit Transfer(int fd) { in_transfer = fd; }
    ~Transfer() { in_transfer = -1; }
};

}  // namespace

extern "C" {
int __real_open64(const char* path, int flags, ...);
DIR* __real_opendir(const char* path);
ssize_t __real_read(int fd, void* buffer, std::size_t size);
ssize_t __real_write(int fd, const void* data, std::size_t size);

int __wrap_open64(const char* path, int flags, ...) {
    constexpr std::string_view gadget = "/dev/gadget/";
    if (std::string_view{path}.starts_with(gadget)) {
        return open_gadget_file(path + gadget.size());
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return __real_open64(path, flags, mode);
}

DIR* __wrap_opendir(const char* path) {
    return __real_opendir(std::strcmp(path, "/dev/gadget") == 0 ? directory.c_str() : path);
}

ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    if (fd == ep0 && state == State::delivered) {
        return read_control(buffer, size);
    }
    if (fd == ep0) {
        fuzz::require(size >= sizeof(usb_gadgetfs_event), "a read of less than an event");
        state = state == State::sent ? State::delivered : state;
        return __real_read(fd, buffer, size);
    }
    if (!is_gadget_file(fd)) {
        return __real_read(fd, buffer, size);
    }
    const Transfer transfer{fd};
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, -1) < 0 ? -1 : __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
    if (fd == ep0 && state == State::delivered) {
        if (!is_in()) {
            fuzz::require(size == 0, "data against the request's direction");
            return can_be_stalled() ? end_request(State::stalled, -1, EL2HLT)
                                    : end_request(State::delivered, -1, ESRCH);
        }
        answer.assign(static_cast<const char*>(data), size);
        return end_request(State::answered, static_cast<ssize_t>(size));
    }
    const std::lock_guard lock{files_lock};
    const auto file = files.find(fd);
    if (file == files.end() || file->second.address >= 0) {
        return __real_write(fd, data, size);
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    fuzz::require(size == (fd == ep0 ? 86 : 18) && bytes[0] == (fd == ep0 ? 0 : 1),
                  "configuration of a file");
    file->second.address = fd == ep0 ? 0 : bytes[6];
    (bytes[6] == 0x02 ? out_host : in_host) = file->second.host;
    return static_cast<ssize_t>(size);
}

int __wrap_ioctl(int fd, unsigned long, ...) {
    fuzz::require(in_transfer != fd, "a halt is cleared while a transfer waits");
    return 0;
}
}

// Where the data goes.
static std::mutex relayed_lock;
static Text relayed;
bool tcp_client_connected() {
    return true;
}
void tcp_relay_send(std::span<const std::uint8_t> data) {
    const std::lock_guard lock{relayed_lock};
    relayed.append(data.begin(), data.end());
}
void publish_video_frame(std::span<const std::uint8_t>) {}
void decode_camera_packet(std::span<const std::uint8_t>) {}
void end_process(int code, const char*, void (*)()) {
    fuzz::require(false, "the process ends with " + std::to_string(code));
    std::abort();
}

namespace {

constexpr std::int32_t high_speed = USB_SPEED_HIGH;
const Text device = {0x12, 1, 0, 2, '\xFF', 0, 0, 0, '\xD1', 0x18, 0, 0x2D, 0, 0, 25, 45, 101, 1};
const Text configuration = {9, 2,      32, 0, 1,      2, '\xFA', '\xC0', 1, 9, 4, 0, 0, 2, '\xFF', 0,
                            0, '\xFA', 7,  5, '\x86', 2, 0,      2,      0, 7, 5, 2, 2, 0, 2,      0};

void send_event(std::uint32_t type, const void* content, std::size_t size) {
    usb_gadgetfs_event event{};
    std::memcpy(&event, content, size);
    std::memcpy(reinterpret_cast<std::uint8_t*>(&event) + 8, &type, sizeof type);
    fuzz::require(send(files[ep0].host, &event, sizeof event, 0) == sizeof event, "event");
    fuzz::require(gadget_poll() == 1, "the link ends");
}

void expect(bool is_stalled, const Text& data = {}, bool is_acknowledged = false) {
    if (is_stalled && !can_be_stalled()) {
        fuzz::require(state != State::delivered, "left without an end");
    } else if (is_stalled || is_acknowledged) {
        fuzz::require(state == (is_stalled ? State::stalled : State::acknowledged),
                      "not stalled, or not acknowledged");
    } else {
        fuzz::require(state == State::answered && answer == data.substr(0, request.wLength), "other data");
    }
}

void ask(const usb_ctrlrequest& asked) {
    request = asked;
    state = State::sent;
    send_event(GADGETFS_SETUP, &asked, sizeof asked);
    const auto [type, number, value, index, length] = asked;
    static const std::map<int, Text> strings{
        {25, "Ardenvue"}, {45, "Ardenvue USB"}, {101, "00000000"}, {250, "The loopback"}};
    if (number == 6 && type == 0x80 && (value >> 8 == 1 || value >> 8 == 2)) {
        expect(false, value >> 8 == 1 ? device : configuration);
    } else if (number == 6 && type == 0x80 && value >> 8 == 3 && (value & 0xFF) == 0) {
        expect(false, "\x04\x03\x09\x04");
    } else if (number == 6 && type == 0x80 && value >> 8 == 3 && strings.contains(value & 0xFF)) {
        const Text& text = strings.at(value & 0xFF);
        Text units{static_cast<char>(2 + 2 * text.size()), 3};
        for (const char c : text) {
            units += {c, '\0'};
        }
        expect(false, units);
    } else if (number == 9 && type == 0 && value == 0) {
        expect(false, {}, true);
        fuzz::require(usb_link().ep_in == nullptr && usb_link().ep_out == nullptr, "still configured");
    } else if (number == 9 && type == 0 && value == 2) {
        const bool configured = usb_link().ep_in != nullptr && usb_link().ep_out != nullptr;
        // One that can't be had is ended by reading its data, which no host sends along.
        const bool ended = state == State::acknowledged || (length > 0 && state == State::taken);
        fuzz::require(ended && configured == has_files_for_both, "configuration 2");
    } else if (number == 10 && type == 0x81 && index == 0 && length <= 1) {
        expect(false, Text(1, '\0'));
    } else {
        expect(number != 11 || type != 1 || value != 0 || index != 0, {}, true);
    }
}

// Boards have generic files or files of one endpoint each, with or without ones to spare.
std::string make_directory(std::initializer_list<const char*> names) {
    char path[] = "/tmp/fuzz-gadget-XXXXXX";
    fuzz::require(mkdtemp(path) != nullptr, "directory");
    for (const char* name : names) {
        close(creat((std::string{path} + "/" + name).c_str(), 0600));
    }
    return path;
}
const std::string directories[] = {make_directory({"musb-hdrc", "ep-a", "ep-b"}),
                                   make_directory({"musb-hdrc", "ep-a", "ep-b", "ep-c"}),
                                   make_directory({"musb-hdrc", "ep6in-bulk", "ep2out-bulk"}),
                                   make_directory({"musb-hdrc", "ep6in", "ep3out"})};

std::size_t open_files() {
    std::size_t count = 0;
    DIR* const list = opendir("/proc/self/fd");
    while (readdir(list) != nullptr) {
        ++count;
    }
    closedir(list);
    return count;
}

// A packet from the host, which must come out at the relay as it is.
void stream(std::span<const std::uint8_t> packet) {
    fuzz::require(send(out_host, packet.data(), packet.size(), 0) == static_cast<ssize_t>(packet.size()),
                  "send");
    fuzz::wait_until("the reader reads", [&] {
        const std::lock_guard lock{relayed_lock};
        return relayed.size() >= packet.size() && usb_streaming();
    });
    const auto as_byte = [](char c) { return static_cast<std::uint8_t>(c); };
    fuzz::require(std::ranges::equal(std::exchange(relayed, {}), packet, {}, as_byte),
                  "what the reader relays");
}

// A packet to the host, while it streams.
void write_back(std::span<const std::uint8_t> packet) {
    std::atomic<int> written = -2;
    std::thread writer{[&] { written = usb_write_locked(packet); }};
    const std::uint8_t byte = 0x55;
    while (written == -2) {
        stream({&byte, 1});
    }
    writer.join();
    std::uint8_t received[1024];
    const ssize_t size = recv(in_host, received, sizeof received, MSG_DONTWAIT);
    const bool fits = packet.size() <= usb_read_size;
    fuzz::require(written == (fits ? static_cast<int>(packet.size()) : -1), "result of a write");
    fuzz::require(fits
                      ? std::ranges::equal(packet, std::span{received, received + std::max<ssize_t>(size, 0)})
                      : size < 0,
                  "what is written");
}

void play(fuzz::Input& input) {
    const UsbLink& link = usb_link();
    while (!input.empty()) {
        const std::uint8_t act = input.byte();
        if (act % 8 == 7 && link.ep_in != nullptr && link.ep_out != nullptr) {
            std::array<std::uint8_t, usb_read_size + 1> packet{};
            std::ranges::copy(input.bytes(act), packet.begin());
            stream({packet.data(), 1U + 2 * act});
            write_back({packet.data(), act == 255 ? packet.size() : act});
        } else if (link.streaming != 0) {
            return;  // control events wait for ever now
        } else if (act % 8 < 4) {
            usb_ctrlrequest asked{};
            std::ranges::copy(input.bytes(sizeof asked), reinterpret_cast<std::uint8_t*>(&asked));
            ask(asked);
        } else if (act % 8 < 6) {
            ask({0, USB_REQ_SET_CONFIGURATION, static_cast<std::uint16_t>(act % 8 == 4 ? 2 : 0), 0, 0});
        } else {
            const std::int32_t nothing = 0;
            constexpr std::uint32_t types[] = {GADGETFS_NOP, GADGETFS_SUSPEND, GADGETFS_DISCONNECT, 77};
            send_event(types[act / 8 % 4], &nothing, sizeof nothing);
            send_event(GADGETFS_CONNECT, &high_speed, sizeof high_speed);
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input{data, size};
    const std::size_t board = input.byte() % std::size(directories);
    directory = directories[board];
    has_files_for_both = board != 3;
    const std::size_t open_before = open_files();
    UsbLink& link = usb_link();
    fuzz::require(gadget_open(0x18D1, 0x2D00) == 0, "open");
    send_event(GADGETFS_CONNECT, &high_speed, sizeof high_speed);
    play(input);

    link.streaming = 0;
    send_event(GADGETFS_DISCONNECT, &high_speed, sizeof high_speed);
    fuzz::require(!link.read_thread && link.ep_in == nullptr && link.ep_out == nullptr &&
                      link.handle->endpoints.empty(),
                  "something is left of the connection");
    usb_gadget_close(link.handle);
    fair_lock_destroy(link.lock);
    delete[] link.rx_buffer;
    std::ranges::for_each(hosts, close);
    hosts.clear();
    files.clear();
    fuzz::require(open_files() == open_before, "open files are left");
    return 0;
}
