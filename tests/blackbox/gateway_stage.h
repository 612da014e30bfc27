// The gateway as a process of its own, and HTTP as a client of any kind may speak it.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <spawn.h>

#include <csignal>
#include <vector>

#include "tests/blackbox/ctl_stage.h"

namespace gateway_stage {

using namespace ctl_stage;

using sim::loopback;

// A connection to a server of this machine.
class Http {
  public:
    explicit Http(std::uint16_t port) : socket_{sim::connect_to(port)} { EXPECT_TRUE(socket_); }

    void send(const std::string& bytes) const {
        ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    }

    // Reads until the condition holds for all that came so far; false when the server closed before, or
    // nothing came for too long.
    template <typename Condition>
    bool read_until(Condition condition) {
        while (!condition(text)) {
            char buffer[65'536];
            pollfd readable{socket_.get(), POLLIN, 0};
            if (poll(&readable, 1, static_cast<int>(patience.count())) <= 0) {
                return false;
            }
            const ssize_t size = recv(socket_.get(), buffer, sizeof buffer, 0);
            if (size <= 0) {
                is_closed = true;
                return condition(text);
            }
            text.append(buffer, static_cast<std::size_t>(size));
        }
        return true;
    }
    bool read_until_says(const std::string& words) {
        return read_until([&](const std::string& all) { return all.find(words) != std::string::npos; });
    }
    // True once the server has closed the connection.
    bool closes() {
        read_until([](const std::string&) { return false; });
        return is_closed;
    }
    int descriptor() const { return socket_.get(); }

    std::string text;  // all that came
    bool is_closed = false;

  private:
    FileDescriptor socket_;
};

struct HttpReply {
    int status = 0;
    std::string head;
    std::string body;

    Json json() const { return parse_json(body); }
};

using Headers = std::vector<std::string>;

inline std::string request_text(const std::string& line, const std::string& body, const Headers& headers) {
    std::string text = line + " HTTP/1.1\r\n";
    const bool names_host =
        std::ranges::any_of(headers, [](const auto& h) { return h.starts_with("Host:"); });
    text += names_host ? "" : "Host: localhost\r\n";
    for (const std::string& header : headers) {
        text += header + "\r\n";
    }
    return text + "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

class Gateway {
  public:
    // Options but --listen and the guard's; waits until it serves, or has ended.
    explicit Gateway(const std::string& options, std::uint16_t listen_port = 0) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        stderr_ = FileDescriptor{ends[0]};
        FileDescriptor its_end{ends[1]};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, its_end.get(), STDERR_FILENO);
        const std::string line = "exec " GATEWAY_PATH " --listen 127.0.0.1:" + std::to_string(listen_port) +
                                 " --stick-guard " STICK_GUARD_PATH " " + options;
        char* arguments[] = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                             const_cast<char*>(line.c_str()), nullptr};
        EXPECT_EQ(posix_spawn(&process_, "/bin/sh", &actions, nullptr, arguments, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        its_end = FileDescriptor{};
        char character = 0;
        while (said.find("127.0.0.1:") == std::string::npos || !said.ends_with('\n')) {
            if (read(stderr_.get(), &character, 1) != 1) {
                stop(0);
                return;
            }
            said += character;
        }
        port = static_cast<std::uint16_t>(std::atoi(said.c_str() + said.find("127.0.0.1:") + 10));
    }
    ~Gateway() { EXPECT_EQ(stop(), 0) << said; }
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    // Ends it, by a signal unless it has ended; the exit code, the first time.
    int stop(int signal = SIGTERM) {
        if (process_ > 0) {
            kill(process_, signal);
            int status = 0;
            waitpid(std::exchange(process_, -1), &status, 0);
            code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
        }
        return code_;
    }

    HttpReply ask(const std::string& line, const std::string& body = "", const Headers& headers = {}) const {
        Http http{port};
        http.send(request_text(line, body, headers));
        HttpReply reply;
        http.read_until([&](const std::string& all) {
            const std::size_t end = all.find("\r\n\r\n");
            const std::size_t length = all.find("Content-Length: ");
            return end != std::string::npos && length < end &&
                   all.size() >= end + 4 + std::stoul(all.substr(length + 16));
        });
        const std::size_t end = std::min(http.text.find("\r\n\r\n"), http.text.size());
        reply.head = http.text.substr(0, end);
        reply.body = http.text.substr(std::min(end + 4, http.text.size()));
        reply.status = reply.head.size() > 12 ? std::stoi(reply.head.substr(9, 3)) : 0;
        return reply;
    }

    std::uint16_t port = 0;
    std::string said;  // at the start, on its standard error stream

  private:
    pid_t process_ = -1;
    int code_ = 0;
    FileDescriptor stderr_;
};

}  // namespace gateway_stage
