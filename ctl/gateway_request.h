// Requests to a gateway, by libcurl.
#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ctl/gateway_bridge.h"
#include "formats/json.h"

namespace ctl {

constexpr long request_patience_ms = 10'000;
constexpr std::size_t longest_line = 100'000;

struct CurlDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using formats::Json;

// RFC 4648, section 4; up to the first character that is none of it.
inline std::string decode_base64(std::string_view text) {
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
        set(CURLOPT_NOPROXY, "*");
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

    bool is_refused() {
        long status = 0;
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &status);
        return status >= 400;
    }

    std::string text;  // what came and was not taken

  protected:
    // True when the bytes were taken; nothing more is kept of what is too long.
    virtual bool take(std::string_view bytes) {
        text.append(bytes.substr(0, longest_line - std::min(longest_line, text.size())));
        return true;
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

}  // namespace ctl
