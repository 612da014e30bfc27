// The relay: one TCP client at a time sees the raw stream and writes to the remote controller.
#include <netinet/tcp.h>

#include <csignal>
#include <memory>
#include <random>

#include "sim/board/loopback.h"
#include "tests/blackbox/harness.h"

namespace {
using namespace blackbox;
using testing::IsEmpty;

// A client of the relay, with what it has received so far.
class Client {
  public:
    explicit Client(std::uint16_t port, int receive_buffer = 0) : fd_{sim::connect_to(port, receive_buffer)} {
        if (!fd_) {
            throw std::runtime_error("the relay does not listen");
        }
    }

    void send(const Bytes& bytes) const {
        ASSERT_EQ(::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Receives once; false at the end of the connection, or when nothing came in time.
    bool receive(Milliseconds timeout = patience, std::size_t most = 65'536) {
        pollfd entry{fd_.get(), POLLIN, 0};
        Bytes piece(most);
        const ssize_t size = poll(&entry, 1, static_cast<int>(timeout.count())) > 0
                                 ? recv(fd_.get(), piece.data(), piece.size(), 0)
                                 : 0;
        if (size > 0) {
            received_.insert(received_.end(), piece.begin(), piece.begin() + size);
        }
        return size > 0;
    }
    // Receives until the bytes are among what was received, in one run.
    bool receives(const Bytes& bytes) {
        const auto there = [&] {
            return std::search(received_.begin(), received_.end(), bytes.begin(), bytes.end());
        };
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (there() == received_.end()) {
            if (std::chrono::steady_clock::now() > deadline || !receive()) {
                return false;
            }
        }
        return true;
    }
    const Bytes& received() const { return received_; }

    // Goes as a client does whose machine lost it: the connection is reset.
    void vanish() {
        const linger at_once = {1, 0};
        setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        fd_ = {};
    }

  private:
    FileDescriptor fd_;
    Bytes received_;
};

constexpr const char* waiting = "TCP server: Waiting TCP client connection...\n";
constexpr const char* connected = "TCP server: Client connected with ip address: 127.0.0.1\n";

// Bytes without any order, so that a lost, doubled or moved piece shows.
Bytes noise(std::size_t size, unsigned seed) {
    std::mt19937 random{seed};
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return bytes;
}

// Packets from the IN endpoint until they come to that many bytes.
Bytes written_to_camera(Service& service, std::size_t size) {
    Bytes bytes;
    while (bytes.size() < size) {
        const Bytes packet = service.next_packet();
        if (packet.empty()) {
            break;
        }
        bytes.insert(bytes.end(), packet.begin(), packet.end());
    }
    return bytes;
}

#ifndef REAL_BOARD
TEST(Relay, GoesOnWithoutItsBuffer) {
    Service service{{{}, {}, {}, true, {"sndbuf"}}};
    EXPECT_TRUE(service.said("TCP server: can't set buffer size\n"));
    const Client client{service.board().relay_port(patience).value_or(0)};
    EXPECT_TRUE(service.said(connected));
}
#endif

TEST(Relay, ServesOneClientAfterTheOther) {
    Service service;
    const std::uint16_t port = service.board().relay_port(patience).value_or(0);
    auto first = std::make_unique<Client>(port);
    EXPECT_TRUE(service.said(connected));

    // Before the stream flows nothing passes, neither way: what comes first is its first frame.
    first->send({0xEE});
    ASSERT_NO_FATAL_FAILURE(service.stream());
    EXPECT_TRUE(first->receives(keep_alive_frame));
    EXPECT_EQ(Bytes(first->received().begin(), first->received().begin() + 8), keep_alive_frame);

    // A small piece, one as large as a packet, and several packets.
    for (const std::size_t size : {3U, 512U, 40'000U}) {
        const Bytes bytes = noise(size, 1);
        ASSERT_TRUE(service.send(bytes));
        EXPECT_TRUE(first->receives(bytes)) << size;
    }

    first->send({0x42});
    EXPECT_EQ(service.next_packet(), Bytes{0x42});
    const Bytes injected = noise(2'000, 2);
    first->send(injected);
    EXPECT_EQ(written_to_camera(service, injected.size()), injected);

    // The second waits for the first to go, and misses what came before.
    Client second{port};
    const Bytes before = noise(5'000, 3);
    ASSERT_TRUE(service.send(before));
    EXPECT_TRUE(first->receives(before));
    EXPECT_THAT(second.received(), IsEmpty());
    EXPECT_FALSE(service.board().wait_for(connected, Milliseconds{0}, 2));
    first.reset();
    EXPECT_TRUE(service.said(waiting, 2));
    EXPECT_TRUE(service.said(connected, 2));
    EXPECT_TRUE(second.receives(keep_alive_frame));  // the line comes a moment before the first piece can
    const Bytes after = noise(5'000, 4);
    ASSERT_TRUE(service.send(after));
    EXPECT_TRUE(second.receives(after));
    EXPECT_EQ(std::search(second.received().begin(), second.received().end(), before.begin(), before.end()),
              second.received().end());

    // Vanished with the stream flowing: the process and the stream go on.
    second.vanish();
    ASSERT_TRUE(service.send(noise(100'000, 5)));
    EXPECT_TRUE(service.said(waiting, 3));
    Client third{port};
    EXPECT_TRUE(third.receives(keep_alive_frame));
}

// It reads all the time, so that no single send waits for long.
TEST(Relay, DropsAClientThatCannotFollow) {
    Service service;
    const std::uint16_t port = service.board().relay_port(patience).value_or(0);
    Client slow{port, 4'096};
    ASSERT_NO_FATAL_FAILURE(service.stream());
    ASSERT_TRUE(slow.receives(keep_alive_frame));
    std::jthread reading{[&slow](const std::stop_token& stop) {
        while (!stop.stop_requested() && slow.receive(patience, 2'000)) {
            std::this_thread::sleep_for(Milliseconds{5});
        }
    }};
    const Bytes piece = noise(50'000, 6);
    Bytes sent;
    while (!service.board().wait_for(waiting, Milliseconds{0}, 2)) {
        ASSERT_LT(sent.size(), 20'000'000U)
            << "more than the kernel keeps for a client, and 50 s at its pace";
        ASSERT_TRUE(service.send(piece));
        sent.insert(sent.end(), piece.begin(), piece.end());
    }
    EXPECT_TRUE(service.said("TCP server: Client too slow for the stream, dropped\n"));
    // The video goes on, and the next client waits until the video may wait again.
    Client next{port};
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(service.send(piece));
    }
    EXPECT_FALSE(service.board().wait_for(connected, Milliseconds{0}, 2));
    reading.request_stop();
    reading.join();
    // The connection ended, and what came through before is the stream without a hole.
    while (slow.receive()) {
    }
    const auto pieces = [](Bytes bytes) {
        for (auto at = bytes.begin(); at != bytes.end();) {
            at = std::search(at, bytes.end(), keep_alive_frame.begin(), keep_alive_frame.end());
            at = at == bytes.end()
                     ? at
                     : bytes.erase(at, at + static_cast<std::ptrdiff_t>(keep_alive_frame.size()));
        }
        return bytes;
    };
    const Bytes got = pieces(slow.received());
    EXPECT_GT(got.size(), 4'096U);
    ASSERT_LE(got.size(), sent.size());
    EXPECT_TRUE(std::equal(got.begin(), got.end() - 8, sent.begin()));
}

#ifndef REAL_BOARD
// What the last connection left in the kernel does not keep a restarted service from its port.
TEST(Relay, ComesBackOnItsPortAtOnce) {
    // Bound, so that nobody else is given this port; it may be listened on all the same.
    const FileDescriptor held{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    const int on = 1;
    setsockopt(held.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = sim::loopback(0);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(held.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(getsockname(held.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    const std::uint16_t port = ntohs(address.sin_port);
    ServiceSetup setup;
    setup.board.relay_port = port;
    Service service{setup};
    ASSERT_TRUE(service.said(waiting));
    Client client{port};
    ASSERT_TRUE(service.said(connected));
    service.board().kill();  // the service's side closes first, and waits for the client's
    EXPECT_EQ(service.end_code(), -SIGKILL);
    EXPECT_FALSE(client.receive());
    service.start();
    EXPECT_TRUE(service.said(waiting));
    Client next{port};
    EXPECT_TRUE(service.said(connected));
}
#endif
}  // namespace
