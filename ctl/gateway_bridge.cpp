#include "ctl/gateway_bridge.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "ctl/gateway_request.h"
#include "ctl/seconds.h"
#include "formats/ipv4.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr int look_ms = 100;
constexpr std::chrono::seconds retry_interval{1};
constexpr std::chrono::seconds refused_interval{15};
constexpr auto answer_patience = 15s;

using formats::loopback;

// An address of this machine can be bound. Whoever holds the port is sent the token, but nobody elsewhere.
bool is_of_this_machine(const std::string& url) {
    const std::unique_ptr<CURLU, CurlDeleter> parsed{curl_url()};
    char* part = nullptr;
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
        curl_url_get(parsed.get(), CURLUPART_HOST, &part, 0) != CURLUE_OK) {
        return false;
    }
    std::string host{part};
    curl_free(part);
    std::erase_if(host, [](char c) { return c == '[' || c == ']'; });
    sockaddr_in ipv4{};
    ipv4.sin_family = AF_INET;
    sockaddr_in6 ipv6{};
    ipv6.sin6_family = AF_INET6;
    const auto is_here = [](const auto& address) {
        const auto* const name = reinterpret_cast<const sockaddr*>(&address);
        const FileDescriptor probe{socket(name->sa_family, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
        return bind(probe.get(), name, sizeof address) == 0;
    };
    return (inet_pton(AF_INET, host.c_str(), &ipv4.sin_addr) == 1 && is_here(ipv4)) ||
           (inet_pton(AF_INET6, host.c_str(), &ipv6.sin6_addr) == 1 && is_here(ipv6));
}

}  // namespace

std::optional<std::string> find_gateway(const std::string& address, std::uint16_t status_port) {
    const FileDescriptor asking{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_in holder = loopback(status_port);
    inet_pton(AF_INET, address.c_str(), &holder.sin_addr);
    constexpr std::string_view question = "?gateway";
    if (connect(asking.get(), reinterpret_cast<const sockaddr*>(&holder), sizeof holder) != 0) {
        return std::nullopt;
    }
    send(asking.get(), question.data(), question.size(), 0);
    pollfd readable{asking.get(), POLLIN, 0};
    std::string answer(300, '\0');
    const ssize_t size =
        poll(&readable, 1, 500) == 1 ? recv(asking.get(), answer.data(), answer.size(), MSG_DONTWAIT) : 0;
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return is_of_this_machine(answer) ? std::optional{answer} : std::nullopt;
}

class GatewayBridge::Threads {
  public:
    Threads(GatewayAddress gateway, std::uint16_t port)
        : gateway_{std::move(gateway)}, link_{loopback(port)} {
        Request first{gateway_, "/api/state"};
        first.set(CURLOPT_TIMEOUT_MS, request_patience_ms);
        if (const std::string problem = first.perform(); !problem.empty()) {
            throw std::runtime_error(gateway_.url + ": " + problem);
        }
        if (const Json state{cJSON_Parse(first.text.c_str())}; !cJSON_HasObjectItem(state.get(), "link")) {
            throw std::runtime_error(gateway_.url + " is no ardenvue-gateway");
        }
        const sockaddr_in any = loopback(0);
        // Connected: from anybody else than the link nothing is taken, as it would be sent with our token.
        if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0 ||
            connect(socket_.get(), reinterpret_cast<const sockaddr*>(&link_), sizeof link_) != 0) {
            throw std::runtime_error("a loopback socket can't be connected");
        }
        listening_ = std::thread{[this] { listen(); }};
        handing_on_ = std::thread{[this] { hand_on(); }};
    }
    ~Threads() {
        stops_ = true;
        listening_.join();
        handing_on_.join();
    }

    std::int64_t newest_frame() const { return newest_frame_; }

    bool wait_for_answers(unsigned count) {
        std::unique_lock guard{lock_};
        const bool all = answered_.wait_for(guard, answer_patience, [&] { return answers_ >= count; });
        if (!all) {
            say("no answer to the command");
        }
        return all && !has_refused_;
    }

    const std::string& url() const { return gateway_.url; }

  private:
    void say(const std::string& problem) const {
        std::fprintf(stderr, "ardenvue-ctl: %s: %s\n", gateway_.url.c_str(), problem.c_str());
    }

    void listen() {
        while (!stops_) {
            EventRequest events{gateway_, [this](auto event, auto data) { take(event, data); }, stops_};
            const std::string problem = events.perform();
            // One that refuses us is not asked often: it takes that for guessing.
            const bool is_refused = events.is_refused();
            if (is_refused) {
                say(problem);
            }
            for (auto again = Clock::now() + (is_refused ? refused_interval : retry_interval);
                 !stops_ && Clock::now() < again;) {
                std::this_thread::sleep_for(50ms);
            }
        }
    }

    void take(std::string_view event, std::string_view data) {
        if (event == "report") {
            const std::string datagram = decode_base64(data);
            if (!datagram.empty()) {
                send(socket_.get(), datagram.data(), datagram.size(), 0);
            }
        } else if (event == "state") {
            const Json state{cJSON_ParseWithLength(data.data(), data.size())};
            const cJSON* const age = cJSON_GetObjectItemCaseSensitive(
                cJSON_GetObjectItemCaseSensitive(state.get(), "link"), "frame_age");
            if (cJSON_IsNumber(age) && age->valuedouble < 1e6) {
                const auto time = Clock::now() - seconds(age->valuedouble);
                newest_frame_ = std::chrono::nanoseconds{time.time_since_epoch()}.count();
            }
        }
    }

    // A link sends "!" and an object; an empty object only says that it is there.
    void hand_on() {
        std::string datagram(65'536, '\0');
        while (!stops_) {
            pollfd readable{socket_.get(), POLLIN, 0};
            if (poll(&readable, 1, look_ms) != 1) {
                continue;
            }
            const ssize_t size = recv(socket_.get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
            const std::string_view sent{datagram.data(),
                                        static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
            if (sent.starts_with('!') && sent != "!{}") {
                post("{\"json\":" + std::string{sent.substr(1)} + "}");
            }
        }
    }

    void post(const std::string& body) {
        Request request{gateway_, "/api/command"};
        request.add_header("Content-Type: application/json");
        request.set(CURLOPT_TIMEOUT_MS, request_patience_ms);
        request.set(CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        request.set(CURLOPT_POSTFIELDS, body.c_str());
        const std::string problem = request.perform();
        if (!problem.empty()) {
            say(problem);
        }
        const std::lock_guard guard{lock_};
        answers_ += 1;
        has_refused_ = has_refused_ || !problem.empty();
        answered_.notify_all();
    }

    const GatewayAddress gateway_;
    const sockaddr_in link_;
    const FileDescriptor socket_{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    std::atomic<bool> stops_{false};
    std::atomic<std::int64_t> newest_frame_{0};
    std::mutex lock_;
    std::condition_variable answered_;
    unsigned answers_ = 0;
    bool has_refused_ = false;
    std::thread listening_;
    std::thread handing_on_;
};

GatewayBridge::GatewayBridge(const GatewayAddress& gateway, std::uint16_t port)
    : threads_{std::make_unique<Threads>(gateway, port)} {}

GatewayBridge::~GatewayBridge() = default;

std::int64_t GatewayBridge::newest_frame() const {
    return threads_->newest_frame();
}

const std::string& GatewayBridge::url() const {
    return threads_->url();
}

bool GatewayBridge::wait_for_answers(unsigned count) {
    return threads_->wait_for_answers(count);
}

}  // namespace ctl
