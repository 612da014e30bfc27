#include "ctl/gateway_bridge.h"

#include <arpa/inet.h>
#include <curl/curl.h>
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

#include <cjson/cJSON.h>

#include "ctl/seconds.h"
#include "platform/file_descriptor.h"

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr int look_ms = 100;
constexpr auto retry_interval = 1s;
constexpr auto answer_patience = 15s;
constexpr long request_patience_ms = 10'000;
constexpr std::size_t longest_line = 100'000;

struct CurlDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::string decode_base64(std::string_view text) {
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int digit = c >= 'A' && c <= 'Z'   ? c - 'A'
                          : c >= 'a' && c <= 'z' ? c - 'a' + 26
                          : c >= '0' && c <= '9' ? c - '0' + 52
                          : c == '+'             ? 62
                          : c == '/'             ? 63
                                                 : -1;
        if (digit < 0) {
            break;
        }
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return bytes;
}

// A request to the gateway; what comes is handed on as it comes.
class Request {
  public:
    Request(const GatewayAddress& gateway, const std::string& path) : curl_{curl_easy_init()} {
        set(CURLOPT_URL, (gateway.url + path).c_str());
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_CONNECTTIMEOUT_MS, request_patience_ms);
        set(CURLOPT_WRITEFUNCTION, &Request::on_bytes);
        set(CURLOPT_WRITEDATA, this);
        if (!gateway.token.empty()) {
            add_header("Authorization: Bearer " + gateway.token);
        }
    }
    virtual ~Request() = default;
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    void add_header(const std::string& line) {
        headers_.reset(curl_slist_append(headers_.release(), line.c_str()));
        set(CURLOPT_HTTPHEADER, headers_.get());
    }
    template <typename Value>
    void set(CURLoption option, Value value) {
        curl_easy_setopt(curl_.get(), option, value);
    }

    // Empty when all went well, else what is to be told.
    std::string perform() {
        const CURLcode code = curl_easy_perform(curl_.get());
        long status = 0;
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status >= 400) {
            const Json json{cJSON_Parse(text.c_str())};
            const char* const why =
                cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(json.get(), "error"));
            return why != nullptr ? why : "HTTP status " + std::to_string(status);
        }
        return code == CURLE_OK ? "" : curl_easy_strerror(code);
    }

    std::string text;  // what came and was not taken

  protected:
    // True when the bytes were taken; nothing more is kept of what is too long.
    virtual bool take(std::string_view bytes) {
        text.append(bytes.substr(0, longest_line - std::min(longest_line, text.size())));
        return true;
    }
    bool is_refused() {
        long status = 0;
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
        return status >= 400;
    }

  private:
    static std::size_t on_bytes(const char* bytes, std::size_t one, std::size_t size, void* self) {
        return static_cast<Request*>(self)->take({bytes, size}) ? one * size : 0;
    }

    std::unique_ptr<CURL, CurlDeleter> curl_;
    std::unique_ptr<curl_slist, CurlDeleter> headers_;
};

// Server-sent events (HTML Living Standard, 9.2), one line of data each.
class EventRequest : public Request {
  public:
    EventRequest(const GatewayAddress& gateway,
                 std::function<void(std::string_view, std::string_view)> on_event,
                 const std::atomic<bool>& stops)
        : Request{gateway, "/api/events?reports=1"}, on_event_{std::move(on_event)}, stops_{stops} {
        // The gateway says something every two seconds.
        set(CURLOPT_LOW_SPEED_LIMIT, 1L);
        set(CURLOPT_LOW_SPEED_TIME, 6L);
        set(CURLOPT_NOPROGRESS, 0L);
        set(CURLOPT_XFERINFOFUNCTION, &EventRequest::on_progress);
        set(CURLOPT_XFERINFODATA, this);
    }

  private:
    bool take(std::string_view bytes) override {
        Request::take(bytes);
        for (std::size_t end = text.find('\n'); !is_refused() && end != std::string::npos;
             end = text.find('\n')) {
            const std::string line = text.substr(0, end);
            text.erase(0, end + 1);
            if (line.starts_with("event: ")) {
                event_ = line.substr(7);
            } else if (line.starts_with("data: ")) {
                on_event_(event_, std::string_view{line}.substr(6));
            }
        }
        return text.size() < longest_line;
    }
    static int on_progress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<EventRequest*>(self)->stops_ ? 1 : 0;
    }

    std::function<void(std::string_view, std::string_view)> on_event_;
    const std::atomic<bool>& stops_;
    std::string event_;
};

}  // namespace

std::optional<std::string> find_gateway(const std::string& address, std::uint16_t status_port) {
    const FileDescriptor asking{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_in holder = loopback(status_port);
    inet_pton(AF_INET, address.c_str(), &holder.sin_addr);
    constexpr std::string_view question = "?gateway";
    sendto(asking.get(), question.data(), question.size(), 0, reinterpret_cast<const sockaddr*>(&holder),
           sizeof holder);
    pollfd readable{asking.get(), POLLIN, 0};
    std::string answer(300, '\0');
    const ssize_t size =
        poll(&readable, 1, 500) == 1 ? recv(asking.get(), answer.data(), answer.size(), MSG_DONTWAIT) : 0;
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return answer.starts_with("http") ? std::optional{answer} : std::nullopt;
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
        if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
            throw std::runtime_error("a loopback socket can't be bound");
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
        const std::string problem = all ? problem_ : "no answer to the command";
        if (!problem.empty()) {
            std::fprintf(stderr, "ardenvue-ctl: %s: %s\n", gateway_.url.c_str(), problem.c_str());
        }
        return problem.empty();
    }

  private:
    void listen() {
        while (!stops_) {
            EventRequest events{gateway_, [this](auto event, auto data) { take(event, data); }, stops_};
            events.perform();  // whatever ended it, it is tried again
            for (auto again = Clock::now() + retry_interval; !stops_ && Clock::now() < again;) {
                std::this_thread::sleep_for(50ms);
            }
        }
    }

    void take(std::string_view event, std::string_view data) {
        if (event == "report") {
            const std::string datagram = decode_base64(data);
            if (!datagram.empty()) {
                sendto(socket_.get(), datagram.data(), datagram.size(), 0,
                       reinterpret_cast<const sockaddr*>(&link_), sizeof link_);
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
        const std::lock_guard guard{lock_};
        answers_ += 1;
        problem_ = problem;
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
    std::string problem_;  // of the newest command
    std::thread listening_;
    std::thread handing_on_;
};

GatewayBridge::GatewayBridge(const GatewayAddress& gateway, std::uint16_t port)
    : threads_{std::make_unique<Threads>(gateway, port)} {}

GatewayBridge::~GatewayBridge() = default;

std::int64_t GatewayBridge::newest_frame() const {
    return threads_->newest_frame();
}

bool GatewayBridge::wait_for_answers(unsigned count) {
    return threads_->wait_for_answers(count);
}

}  // namespace ctl
