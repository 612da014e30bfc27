// A standard error stream that stalls, fails or is not there: the service flies on without it.
#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <thread>

#include "ardenvue.h"
#include "platform/file_descriptor.h"
#include "sim/aircraft/packet.h"
#include "tests/blackbox/harness.h"

namespace {

using namespace blackbox;
namespace fs = std::filesystem;

constexpr int closed = -1;

// A stream that takes nothing more, the end that its reader has, and what makes the reader read again.
struct Stalled {
    FileDescriptor service;
    FileDescriptor reader;
    const char* to_go_on = "";
};

Stalled full_pipe() {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const std::string filling(static_cast<std::size_t>(fcntl(ends[1], F_SETPIPE_SZ, 4096)), '.');
    EXPECT_EQ(write(ends[1], filling.data(), filling.size()), static_cast<ssize_t>(filling.size()));
    return {FileDescriptor{ends[1]}, FileDescriptor{ends[0]}};
}

Stalled full_socket() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    while (send(ends[1], "....", 4, MSG_DONTWAIT) > 0) {
    }
    return {FileDescriptor{ends[1]}, FileDescriptor{ends[0]}};
}

Stalled stopped_terminal() {
    int keyboard = -1;
    int terminal = -1;
    EXPECT_EQ(openpty(&keyboard, &terminal, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(write(keyboard, "\x13", 1), 1);  // Ctrl-S
    fcntl(terminal, F_SETFD, FD_CLOEXEC);
    fcntl(keyboard, F_SETFD, FD_CLOEXEC);
    return {FileDescriptor{terminal}, FileDescriptor{keyboard}, "\x11"};
}

Stalled full_disk() {
    return {FileDescriptor{open("/dev/full", O_WRONLY | O_CLOEXEC)}, {}};
}

bool reader_sees(const Stalled& stream, const std::string& text) {
    if (*stream.to_go_on != '\0') {
        EXPECT_EQ(write(stream.reader.get(), stream.to_go_on, 1), 1);
    }
    std::string seen;
    return eventually([&] {
        std::array<char, 65'536> piece;
        pollfd entry{stream.reader.get(), POLLIN, 0};
        const ssize_t size = poll(&entry, 1, 100) > 0 ? read(entry.fd, piece.data(), piece.size()) : 0;
        seen.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return seen.find(text) != std::string::npos;
    });
}

void expect_flight_goes_on(Stalled (*make)()) {
    const Stalled stream = make();
    const int flags = fcntl(stream.service.get(), F_GETFL);
    Service service{{.error_stream = stream.service.get()}};
    ASSERT_NO_FATAL_FAILURE(service.stream(Milliseconds{20}));
    // Some 2,500 dumps of 80 characters: more than any queue holds.
    ASSERT_TRUE(service.send_frames(Bytes(20'000, 0)));
    const Bytes picture = sim::encode_frame(formats::FrameType::video, Bytes(100, 0x5A));
    ASSERT_TRUE(service.send_frames(picture));
    ASSERT_TRUE(service.send_frames(picture));
    const auto ring = service.board().shared_memory(ardenvue::frame_ring_name);
    ASSERT_TRUE(ring);
    EXPECT_TRUE(eventually([&] { return *static_cast<volatile std::uint8_t*>(ring->data.get() + 2) == 1; }));
    service.command(R"({"cmd":"shot"})");
    EXPECT_EQ(service.next_packet().size(), 14U);
    EXPECT_NE(service.next_status(), "");
    if (stream.reader) {
        EXPECT_TRUE(reader_sees(stream, " diagnostic lines lost"));
    }
    EXPECT_EQ(fcntl(stream.service.get(), F_GETFL), flags);
    // The watchdog does not wait for anybody either.
    service.stop_keep_alive();
    EXPECT_EQ(service.end_code(), 2);
}

TEST(Diagnostics, NothingWaitsForThem) {
    std::vector<std::thread> threads;  // side by side: most of the time is waiting
    for (const auto make : {full_pipe, full_socket, stopped_terminal, full_disk}) {
        threads.emplace_back(expect_flight_goes_on, make);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// The signal is ignored by the service alone: what it starts ends by it as usual.
TEST(Diagnostics, OutliveTheirReader) {
    Stalled stream = full_pipe();
    stream.reader = {};
    Service service{{.error_stream = stream.service.get()}};
    const fs::path companion = fs::path{service.board().directory()} / "cwd/linkagent";
    std::ofstream{companion}
        << "#!/bin/sh\ngrep SigIgn /proc/$$/status > ignored.part\nmv ignored.part ignored\n";
    fs::permissions(companion, fs::perms::owner_all);
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_NE(service.next_status(), "");
    const fs::path ignored = companion.parent_path() / "ignored";
    ASSERT_TRUE(eventually([&] { return fs::exists(ignored); }));
    std::string name;
    std::uint64_t signals = ~0ULL;
    std::ifstream{ignored} >> name >> std::hex >> signals;
    EXPECT_EQ(signals & (1ULL << (SIGPIPE - 1)), 0U);
}

TEST(Diagnostics, NothingElseIsTakenForTheirStream) {
    Service service{{.error_stream = closed}};
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_NE(service.next_status(), "");
    for (const char* fd : {"0", "1", "2"}) {
        EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(service.board().process()) + "/fd/" + fd),
                  "/dev/null");
    }
}

}  // namespace
