#include "gateway/server.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <list>
#include <stdexcept>
#include <thread>

#include "gateway/address.h"
#include "gateway/connection.h"
#include "platform/file_descriptor.h"

namespace gateway {
namespace {

using namespace std::chrono_literals;

constexpr auto sweep_interval = 500ms;
// What the kernel holds for a client: on its way, and not even begun to be sent (tcp(7)). As little of the
// second as keeps a fast client fed: it gets old there.
constexpr int most_in_flight = 262'144;
constexpr int most_unsent = 65'536;
constexpr int backlog = 64;

FileDescriptor listen_on(const sockaddr_storage& address) {
    FileDescriptor listener{socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    const int on = 1;
    const socklen_t size = address.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (!listener || setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(listener.get(), backlog) != 0) {
        throw std::runtime_error(address_text(address) + ": " + std::strerror(errno));
    }
    return listener;
}

// The peer has closed its end.
bool is_gone(int descriptor) {
    pollfd peer{descriptor, POLLRDHUP, 0};
    return poll(&peer, 1, 0) > 0;
}

}  // namespace

std::string read_pem(const std::string& path) {
    std::ifstream file{path};
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    if (!file || text.empty()) {
        throw std::runtime_error(path + ": can't be read");
    }
    return text;
}

// Between start() and the end all of it is the server's thread's.
class Server::Daemon {
  public:
    Daemon(const ServerOptions& options, Interface& interface, Station& station, VideoHub& hub,
           const Waker& waker);
    ~Daemon();

    const std::string& url() const { return url_; }
    void start() {
        thread_ = std::thread{[this] { run(); }};
    }

  private:
    static MHD_Result on_request(void* self, MHD_Connection* connection, const char* path, const char* method,
                                 const char* version, const char* data, std::size_t* size, void** state);
    static void on_completed(void* self, MHD_Connection* connection, void** state,
                             MHD_RequestTerminationCode code);
    static void on_connection(void* self, MHD_Connection* connection, void** state,
                              MHD_ConnectionNotificationCode code);
    static ssize_t on_read(void* exchange, std::uint64_t position, char* buffer, std::size_t size);

    void run();
    void resume_where_due();
    void sweep(TimePoint now);
    void suspend(Exchange& exchange);
    void resume(Exchange& exchange);
    MHD_Result begin(MHD_Connection* connection, const char* path, const char* method, void** state);
    MHD_Result reply(Exchange& exchange);
    MHD_Result reply_stream(Exchange& exchange, const Reply& reply);
    MHD_Result finish(Exchange& exchange);
    void end(Exchange& exchange, MHD_RequestTerminationCode code);
    std::size_t count(Reply::Body kind) const;
    ClientTotals totals() const;

    Interface& interface_;
    Station& station_;
    VideoHub& hub_;
    std::string url_;
    const Waker& waker_;
    MHD_Daemon* daemon_ = nullptr;
    std::list<Connection> connections_;
    std::list<Exchange> exchanges_;
    std::uint64_t pictures_skipped_ = 0;
    std::uint64_t dropped_ = 0;
    std::atomic<bool> stops_{false};
    std::thread thread_;
};

Server::Daemon::Daemon(const ServerOptions& options, Interface& interface, Station& station, VideoHub& hub,
                       const Waker& waker)
    : interface_{interface}, station_{station}, hub_{hub}, waker_{waker} {
    const auto parsed = parse_host_and_port(options.listen, std::uint16_t{8040});
    std::string reason;
    const auto address = parsed ? resolve(*parsed, AF_UNSPEC, reason) : std::nullopt;
    if (!address) {
        throw std::runtime_error("--listen takes HOST:PORT" + (reason.empty() ? "" : ": " + reason));
    }
    if (!options.has_token && !is_loopback(*address)) {
        throw std::runtime_error("anybody could command the camera from another machine: --listen " +
                                 options.listen +
                                 " takes --token-file FILE, which ardenvue-gateway token FILE makes");
    }
    FileDescriptor listener = listen_on(*address);
    sockaddr_storage bound{};
    socklen_t bound_size = sizeof bound;
    getsockname(listener.get(), reinterpret_cast<sockaddr*>(&bound), &bound_size);
    const bool has_tls = !options.certificate.empty();
    url_ = (has_tls ? "https://" : "http://") + address_text(bound);
    std::vector<MHD_OptionItem> tls;
    if (has_tls) {
        tls.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(options.certificate.c_str())});
        tls.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(options.key.c_str())});
    }
    tls.push_back({MHD_OPTION_END, 0, nullptr});
    unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
    flags |= has_tls ? static_cast<unsigned>(MHD_USE_TLS) : 0U;
    daemon_ = MHD_start_daemon(
        flags, 0, nullptr, nullptr, &Daemon::on_request, this, MHD_OPTION_LISTEN_SOCKET, listener.get(),
        MHD_OPTION_CONNECTION_LIMIT, most_connections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_memory,
        MHD_OPTION_CONNECTION_TIMEOUT, patience_seconds, MHD_OPTION_NOTIFY_COMPLETED, &Daemon::on_completed,
        this, MHD_OPTION_NOTIFY_CONNECTION, &Daemon::on_connection, this, MHD_OPTION_STRICT_FOR_CLIENT, 1,
        MHD_OPTION_ARRAY, tls.data(), MHD_OPTION_END);
    if (daemon_ == nullptr) {
        throw std::runtime_error(has_tls ? "the server can't be started: are --cert and --key a pair, in PEM?"
                                         : "the server can't be started");
    }
    listener.release();
}

Server::Daemon::~Daemon() {
    stops_ = true;
    waker_.wake();
    if (thread_.joinable()) {
        thread_.join();
    }
    for (Exchange& exchange : exchanges_) {
        exchange.is_over = true;
        resume(exchange);
    }
    MHD_stop_daemon(daemon_);
}

void Server::Daemon::run() {
    pthread_setname_np(pthread_self(), "http");
    const int epoll = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    TimePoint next_sweep{};
    while (!stops_) {
        MHD_UNSIGNED_LONG_LONG library_ms = 0;
        const auto sweep_ms = static_cast<MHD_UNSIGNED_LONG_LONG>(sweep_interval / 1ms);
        const bool has_timeout = MHD_get_timeout(daemon_, &library_ms) == MHD_YES;
        pollfd readable[2] = {{epoll, POLLIN, 0}, {waker_.descriptor(), POLLIN, 0}};
        poll(readable, 2, static_cast<int>(has_timeout ? std::min(library_ms, sweep_ms) : sweep_ms));
        waker_.clear();
        resume_where_due();
        MHD_run(daemon_);
        if (const TimePoint now = Clock::now(); now >= next_sweep) {
            next_sweep = now + sweep_interval;
            sweep(now);
        }
    }
}

void Server::Daemon::resume_where_due() {
    for (Exchange& exchange : exchanges_) {
        const bool is_due = exchange.stream ? exchange.stream->has_more()
                                            : exchange.awaited_command != 0 &&
                                                  station_.settled(exchange.awaited_command).has_value();
        if (exchange.is_suspended && is_due) {
            resume(exchange);
        }
    }
}

// The library times a connection out that moves nothing, but neither one that is suspended nor one that moves
// a byte now and then.
void Server::Daemon::sweep(TimePoint now) {
    for (const Connection& connection : connections_) {
        if (!connection.has_request &&
            now - connection.waits_since > std::chrono::seconds{patience_seconds}) {
            shutdown(connection.descriptor, SHUT_RDWR);
        }
    }
    for (Exchange& exchange : exchanges_) {
        if (exchange.is_suspended && is_gone(exchange.client->descriptor)) {
            exchange.is_over = true;
            resume(exchange);
        }
    }
}

void Server::Daemon::suspend(Exchange& exchange) {
    exchange.is_suspended = true;
    MHD_suspend_connection(exchange.connection);
}

void Server::Daemon::resume(Exchange& exchange) {
    if (std::exchange(exchange.is_suspended, false)) {
        MHD_resume_connection(exchange.connection);
    }
}

void Server::Daemon::on_connection(void* self, MHD_Connection* connection, void** state,
                                   MHD_ConnectionNotificationCode code) {
    auto& daemon = *static_cast<Daemon*>(self);
    if (code == MHD_CONNECTION_NOTIFY_STARTED) {
        const int descriptor =
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &most_in_flight, sizeof most_in_flight);
        setsockopt(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &most_unsent, sizeof most_unsent);
        daemon.connections_.push_back({descriptor, Clock::now(), false});
        *state = &daemon.connections_.back();
    } else if (*state != nullptr) {
        daemon.connections_.remove_if([state](const Connection& held) { return &held == *state; });
        *state = nullptr;
    }
}

MHD_Result Server::Daemon::on_request(void* self, MHD_Connection* connection, const char* path,
                                      const char* method, const char* /*version*/, const char* data,
                                      std::size_t* size, void** state) {
    auto& daemon = *static_cast<Daemon*>(self);
    if (*state == nullptr) {
        return daemon.begin(connection, path, method, state);
    }
    auto& exchange = *static_cast<Exchange*>(*state);
    if (*size > 0) {
        // One byte more than is taken tells that there was too much.
        std::string& body = exchange.request.body;
        body.append(data, std::min(*size, longest_body + 1 - body.size()));
        *size = 0;
        return MHD_YES;
    }
    return exchange.awaited_command != 0 ? daemon.finish(exchange) : daemon.reply(exchange);
}

// The headers have come. Who may not come in is told so before the body.
MHD_Result Server::Daemon::begin(MHD_Connection* connection, const char* path, const char* method,
                                 void** state) {
    const MHD_ConnectionInfo* const info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    Exchange& exchange = exchanges_.emplace_back();
    *state = &exchange;
    exchange.connection = connection;
    exchange.client = static_cast<Connection*>(info->socket_context);
    exchange.request = describe(connection, path, method);
    const auto refused = interface_.refuse(exchange.request, Clock::now());
    return refused ? queue(exchange, *refused, interface_.allowed_origin(exchange.request)) : MHD_YES;
}

MHD_Result Server::Daemon::reply(Exchange& exchange) {
    exchange.client->has_request = true;
    const Reply reply = interface_.answer(exchange.request, totals());
    if (reply.kind != Reply::Body::text && exchange.request.method != "HEAD") {
        return reply_stream(exchange, reply);
    }
    if (reply.awaited_command != 0) {
        exchange.awaited_command = reply.awaited_command;
        suspend(exchange);
        return MHD_YES;
    }
    return queue(exchange, reply, interface_.allowed_origin(exchange.request));
}

MHD_Result Server::Daemon::finish(Exchange& exchange) {
    const auto answer = station_.settled(exchange.awaited_command);
    if (!answer && !exchange.is_over) {
        suspend(exchange);
        return MHD_YES;
    }
    Reply reply;
    reply.status = answer ? answer->status : 503;
    reply.body = answer ? answer->json : "{}";
    return queue(exchange, reply, interface_.allowed_origin(exchange.request));
}

MHD_Result Server::Daemon::reply_stream(Exchange& exchange, const Reply& reply) {
    const bool is_video = reply.kind == Reply::Body::video;
    if (count(reply.kind) >= (is_video ? most_viewers : most_listeners)) {
        Reply full;
        const Answer answer = refusal(503, "there are as many clients as this gateway takes");
        full.status = answer.status;
        full.body = answer.json;
        return queue(exchange, full, interface_.allowed_origin(exchange.request));
    }
    exchange.kind = reply.kind;
    if (is_video) {
        exchange.stream = std::make_unique<VideoStream>(hub_, pictures_skipped_);
        station_.say_viewers(count(reply.kind));
    } else {
        Listener listener;
        listener.hears_reports = exchange.request.argument("reports").value_or("") == "1";
        listener.after =
            std::strtoull(exchange.request.header("Last-Event-ID").value_or("0").c_str(), nullptr, 10);
        exchange.stream = std::make_unique<EventStream>(station_, listener);
    }
    return queue_stream(exchange, reply, interface_.allowed_origin(exchange.request), &Daemon::on_read);
}

ssize_t Server::Daemon::on_read(void* exchange_pointer, std::uint64_t /*position*/, char* buffer,
                                std::size_t size) {
    auto& exchange = *static_cast<Exchange*>(exchange_pointer);
    if (exchange.is_over) {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    const std::size_t count = exchange.stream->read(buffer, size);
    if (count == 0) {
        exchange.is_suspended = true;
        MHD_suspend_connection(exchange.connection);
    }
    return static_cast<ssize_t>(count);
}

void Server::Daemon::on_completed(void* self, MHD_Connection* /*connection*/, void** state,
                                  MHD_RequestTerminationCode code) {
    if (*state != nullptr) {
        static_cast<Daemon*>(self)->end(*static_cast<Exchange*>(*state), code);
        *state = nullptr;
    }
}

void Server::Daemon::end(Exchange& exchange, MHD_RequestTerminationCode code) {
    dropped_ += code == MHD_REQUEST_TERMINATED_TIMEOUT_REACHED ? 1U : 0U;
    exchange.client->has_request = false;
    exchange.client->waits_since = Clock::now();
    const bool was_viewer = exchange.kind == Reply::Body::video;
    exchanges_.remove_if([&exchange](const Exchange& held) { return &held == &exchange; });
    if (was_viewer) {
        station_.say_viewers(count(Reply::Body::video));
    }
}

std::size_t Server::Daemon::count(Reply::Body kind) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        exchanges_, [kind](const Exchange& exchange) { return exchange.kind == kind; }));
}

ClientTotals Server::Daemon::totals() const {
    return {count(Reply::Body::video), count(Reply::Body::events), connections_.size(), pictures_skipped_,
            dropped_};
}

Server::Server(const ServerOptions& options, Interface& interface, Station& station, VideoHub& hub,
               const Waker& waker)
    : daemon_{std::make_unique<Daemon>(options, interface, station, hub, waker)} {}

Server::~Server() = default;

const std::string& Server::url() const {
    return daemon_->url();
}

void Server::start() {
    daemon_->start();
}

}  // namespace gateway
