// What any client may send to the gateway's TCP port, as bytes, through the real server. Whatever comes: what
// goes to the service is a "!" and one JSON object; nothing that changes something is done for another site's
// page; every reply begins as one of HTTP; and the gateway goes on answering.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <thread>

#include <cjson/cJSON.h>

#include "formats/ipv4.h"
#include "fuzz.h"
#include "gateway/server.h"

namespace {

using namespace gateway;

constexpr const char* token = "0123456789abcdef0123456789abcdef";

using formats::loopback;

FileDescriptor open_socket(int type, std::uint16_t port, bool connects) {
    FileDescriptor opened{socket(AF_INET, type | SOCK_CLOEXEC, 0)};
    const sockaddr_in address = loopback(port);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    fuzz::require((connects ? connect(opened.get(), name, sizeof address)
                            : bind(opened.get(), name, sizeof address)) == 0,
                  "a socket");
    return opened;
}

std::uint16_t port_of(const FileDescriptor& opened) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(opened.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// The gateway, and a service that it has heard.
class World {
  public:
    World() {
        options_.status_port = port_of(open_socket(SOCK_DGRAM, 0, false));
        options_.ring_name = "/ardenvue-fuzz-none";
        options_.sticks_name = "/ardenvue-fuzz-none";
        options_.guard_path = "/nonexistent";
        station_ = std::make_unique<Station>(options_, hub_, [this] { waker_.wake(); });
        reader_ = std::make_unique<VideoReader>(options_.ring_name, hub_, [](bool) {});
        Doorkeeper::Rules rules;
        rules.open_reading = true;
        rules.token = token;
        interface_ = std::make_unique<Interface>(rules, *station_, hub_, *reader_);
        server_ = std::make_unique<Server>(ServerOptions{"127.0.0.1:0", "", "", true}, *interface_, *station_,
                                           hub_, waker_);
        server_->start();
        std::thread{[this] { station_->run([] { return false; }); }}.detach();
        const std::string& url = server_->url();
        port_ = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
        const sockaddr_in status = loopback(options_.status_port);
        const std::string record{
            "\x06\0\0\x84\x03\x01\0\x01\0\x80\0\xFF\x01\x84\0\xE8\x03\0\0\xF4\x01\0\0\x11\x75\0\0\0", 28};
        sendto(service_.get(), record.data(), record.size(), 0, reinterpret_cast<const sockaddr*>(&status),
               sizeof status);
    }

    // What a client gets that says so, up to the first piece of a reply without end; one that may have to
    // wait gives up after a moment.
    std::string ask(std::string_view bytes, bool must_answer) const {
        const FileDescriptor client = open_socket(SOCK_STREAM, port_, true);
        send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        pollfd readable{client.get(), POLLIN, 0};
        const bool has_answer = poll(&readable, 1, must_answer ? 10'000 : 2) == 1;
        fuzz::require(has_answer || !must_answer, "no answer");
        std::string reply(65'536, '\0');
        const ssize_t size = recv(client.get(), reply.data(), reply.size(), MSG_DONTWAIT);
        reply.resize(static_cast<std::size_t>(std::max<ssize_t>(0, size)));
        return reply;
    }

    // The next datagram that the service got; empty when there is none.
    std::string sent() const {
        std::string datagram(65'536, '\0');
        const ssize_t size = recv(service_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        datagram.resize(static_cast<std::size_t>(std::max<ssize_t>(0, size)));
        return datagram;
    }

  private:
    FileDescriptor service_ = open_socket(SOCK_DGRAM, 0, false);
    Options options_;
    Waker waker_;
    VideoHub hub_;
    std::unique_ptr<Station> station_;
    std::unique_ptr<VideoReader> reader_;
    std::unique_ptr<Interface> interface_;
    std::unique_ptr<Server> server_;
    std::uint16_t port_ = 0;
};

bool is_object(const std::string& text) {
    cJSON* const json = cJSON_ParseWithOpts(text.c_str(), nullptr, true);
    const bool is_one = cJSON_IsObject(json);
    cJSON_Delete(json);
    return is_one;
}

}  // namespace

// The first byte chooses what stands before the rest: nothing, or what it takes to come past the door, as a
// path alone would hardly be found.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World& world = *new World;
    static bool may_come_late = false;
    constexpr const char* paths[] = {"/api/command", "/api/control", "/api/sticks", "/api/events?reports=1"};
    fuzz::Input input{data, size};
    const std::uint8_t kind = input.byte();
    const auto rest = input.rest();
    std::string bytes{rest.begin(), rest.end()};
    const bool is_let_in = (kind & 1) != 0;
    if (is_let_in) {
        bytes = std::string{"POST "} + paths[kind >> 1 & 3] +
                " HTTP/1.1\r\nHost: localhost\r\nAuthorization: Bearer " + token +
                "\r\nConnection: close\r\nContent-Length: " + std::to_string(bytes.size()) + "\r\n\r\n" +
                bytes;
    }
    // What is no whole request is waited for, and so is a command's confirmation when that is asked for.
    const bool must_answer = is_let_in && bytes.find("wait") == std::string::npos;
    const std::string reply = world.ask(bytes, must_answer);
    fuzz::require(reply.empty() || reply.starts_with("HTTP/1."), "no reply of HTTP: " + reply);
    for (std::string datagram = world.sent(); !datagram.empty(); datagram = world.sent()) {
        // Presence, of whoever has taken the controls, comes at any time.
        fuzz::require(is_let_in || may_come_late || datagram == "!{}", "sent without the token: " + datagram);
        fuzz::require(datagram[0] == '!' && datagram.size() <= 10'000 && is_object(datagram.substr(1)),
                      "sent to the service: " + datagram);
    }
    may_come_late = is_let_in && !must_answer;
    static unsigned count = 0;
    if (++count % 64 == 0) {
        fuzz::require(world.ask("GET /healthz HTTP/1.0\r\nHost: localhost\r\n\r\n", true).find("link ") !=
                          std::string::npos,
                      "no longer healthy");
    }
    return 0;
}
