// The smallest useful main application: listens to the status, keeps itself present, sends one command and
// waits until the camera's state shows it.
//
//   commander 5000 '{"cmd":"iso","param":"400"}' iso_set=400
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <ardenvue.h>

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: commander PORT JSON KEY=VALUE\n", stderr);
        return 1;
    }
    const std::string command = std::string{"!"} + argv[2];
    const std::string awaited = std::string{argv[3]} + ",";

    // The status comes to one port of this machine; whoever binds it is the main application.
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::perror("status port");
        return 1;
    }

    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds{15};
    auto next_sign_of_life = Clock::now();
    sockaddr_in service{};  // where the status comes from is where commands go
    bool sent = false;
    while (Clock::now() < deadline) {
        // More often than once a second, or the service takes us for lost. Never an empty datagram: it ends
        // the service.
        if (service.sin_port != 0 && Clock::now() >= next_sign_of_life) {
            sendto(fd, "!{}", 3, 0, reinterpret_cast<const sockaddr*>(&service), sizeof service);
            next_sign_of_life = Clock::now() + std::chrono::milliseconds{500};
        }
        pollfd readable{fd, POLLIN, 0};
        if (poll(&readable, 1, 100) <= 0) {
            continue;
        }
        char buffer[2048];
        sockaddr_in source{};
        socklen_t source_size = sizeof source;
        const ssize_t size =
            recvfrom(fd, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&source), &source_size);
        if (size < 1 || static_cast<std::uint8_t>(buffer[0]) != ardenvue::status_line_type) {
            continue;  // a binary record; they come too
        }
        // With a comma in front, a key is found only where a pair begins.
        std::string line = ",";
        line.append(buffer + 1, static_cast<std::size_t>(size - 1));
        service = source;
        if (!sent) {
            sent = sendto(fd, command.data(), command.size(), 0, reinterpret_cast<const sockaddr*>(&service),
                          sizeof service) == static_cast<ssize_t>(command.size());
        } else if (line.find("," + awaited) != std::string::npos) {
            std::printf("the camera's state shows %s\n", argv[3]);
            return 0;
        }
    }
    std::fputs(sent ? "the camera's state does not show it\n" : "no status\n", stderr);
    return 1;
}
