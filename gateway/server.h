// The HTTP server: libmicrohttpd in one thread, with a bound on everything that a client can make it hold or
// wait for.
#pragma once

#include <memory>
#include <string>

#include "gateway/interface.h"
#include "gateway/waker.h"

namespace gateway {

struct ServerOptions {
    std::string listen;       // "127.0.0.1:8040"; port 0: one that the kernel chooses
    std::string certificate;  // PEM; empty: no TLS
    std::string key;
    bool has_token;  // without one it listens on a loopback address only
};

// Reads whole files for them. Throws std::runtime_error.
std::string read_pem(const std::string& path);

class Server {
  public:
    static constexpr unsigned most_connections = 160;
    static constexpr std::size_t most_viewers = 32;
    static constexpr std::size_t most_listeners = 32;
    // A client's memory here, besides the pictures that all share.
    static constexpr std::size_t connection_memory = 65'536;
    // Within which a request must have come whole, and within which a client must take something of what is
    // sent.
    static constexpr unsigned patience_seconds = 10;

    // Listens. All of them must outlive it; who rings the waker has something new for clients. Throws
    // std::runtime_error.
    Server(const ServerOptions& options, Interface& interface, Station& station, VideoHub& hub,
           const Waker& waker);
    // Ends all connections.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // "http://127.0.0.1:8040".
    const std::string& url() const;
    // Serves, in a thread of its own.
    void start();

  private:
    class Daemon;
    std::unique_ptr<Daemon> daemon_;
};

}  // namespace gateway
