// The functions of ardenvue/state.h.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>

#include "ardenvue.h"
#include "client/guarded.h"
#include "client/link.h"
#include "client/monotonic.h"

namespace {

using client::Nanoseconds;

constexpr Nanoseconds report_patience = 1'500'000'000;
constexpr Nanoseconds frame_patience = 1'000'000'000;

void tell(char* reason, std::size_t size, const char* text) {
    if (reason != nullptr && size > 0) {
        std::snprintf(reason, size, "%s", text);
    }
}

template <typename Open>
int open_link(ArdenvueLink** link, char* reason, std::size_t reason_size, Open open) {
    tell(reason, reason_size, "");
    if (link == nullptr) {
        return ARDENVUE_ERROR_ARGUMENT;
    }
    *link = nullptr;
    const int code = client::guarded([&] {
        auto opened = std::make_unique<ArdenvueLink>();
        const int result = open(*opened);
        tell(reason, reason_size, opened->problem.data());
        *link = result == 0 ? opened.release() : nullptr;
        return result;
    });
    if (code == ARDENVUE_ERROR_MEMORY) {
        tell(reason, reason_size, ardenvue_error_text(code));
    }
    return code;
}

}  // namespace

int ardenvue_link_open(ArdenvueLink** link, const char* address, std::uint16_t port, char* reason,
                       std::size_t reason_size) {
    return open_link(link, reason, reason_size, [&](ArdenvueLink& opened) {
        return opened.bind_port(address == nullptr ? "127.0.0.1" : address, port);
    });
}

int ardenvue_link_open_unbound(ArdenvueLink** link, const char* command_port, char* reason,
                               std::size_t reason_size) {
    return open_link(link, reason, reason_size,
                     [&](ArdenvueLink& opened) { return opened.open_unbound(command_port); });
}

void ardenvue_link_close(ArdenvueLink* link) {
    delete link;
}

void ardenvue_link_keep_present(ArdenvueLink* link, bool present) {
    link->keeps_present = present;
}

int ardenvue_link_watch_frames(ArdenvueLink* link, const char* ring_name) {
    return link->frames.watch(ring_name == nullptr ? ardenvue::frame_ring_name : ring_name)
               ? 0
               : link->fail(ARDENVUE_ERROR_ARGUMENT, "no name of a frame ring");
}

void ardenvue_link_saw_frame(ArdenvueLink* link, std::int64_t time_ns) {
    link->frames.saw(time_ns);
}

int ardenvue_link_descriptor(const ArdenvueLink* link) {
    return link->is_bound ? link->socket.get() : -1;
}

const char* ardenvue_link_problem(const ArdenvueLink* link) {
    return link->problem.data();
}

int ardenvue_link_wait(ArdenvueLink* link, enum ArdenvueReport report, int timeout_ms) {
    return link->wait(report, timeout_ms);
}

int ardenvue_link_take(ArdenvueLink* link, const void* datagram, std::size_t size,
                       const sockaddr_in* source) {
    const int got = link->take({static_cast<const std::uint8_t*>(datagram), size}, source);
    link->look_after(client::monotonic_now());
    return got;
}

enum ArdenvueLinkState ardenvue_link_state(ArdenvueLink* link) {
    const Nanoseconds now = client::monotonic_now();
    link->look_after(now);
    const auto is_fresh = [now](Nanoseconds time, Nanoseconds patience) {
        return time != 0 && now - time <= patience;
    };
    const bool reports = is_fresh(link->state.newest(ARDENVUE_ANY_REPORT), report_patience);
    const bool frames = link->frames.is_on() ? is_fresh(link->frames.newest(), frame_patience) : reports;
    return reports && frames   ? ARDENVUE_LINK_LIVE
           : reports || frames ? ARDENVUE_LINK_SILENT
                               : ARDENVUE_LINK_DOWN;
}

std::int64_t ardenvue_link_report_time(const ArdenvueLink* link, enum ArdenvueReport report) {
    return link->state.newest(report);
}

std::int64_t ardenvue_link_report_age(const ArdenvueLink* link, enum ArdenvueReport report) {
    const Nanoseconds time = link->state.newest(report);
    return time == 0 ? -1 : client::monotonic_now() - time;
}

const char* ardenvue_link_service(ArdenvueLink* link) {
    if (!link->knows_service()) {
        return "";
    }
    char host[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &link->service.sin_addr, host, sizeof host);
    std::snprintf(link->service_name.data(), link->service_name.size(), "%s:%u", host,
                  unsigned{ntohs(link->service.sin_port)});
    return link->service_name.data();
}

void ardenvue_link_totals(const ArdenvueLink* link, struct ArdenvueLinkTotals* totals) {
    *totals = link->totals;
}

const char* ardenvue_link_text(const ArdenvueLink* link, const char* key) {
    return link->state.line.value(key);
}

int ardenvue_link_pair(const ArdenvueLink* link, std::size_t index, const char** key, const char** value) {
    const client::StatusLine& line = link->state.line;
    if (index >= line.size()) {
        return ARDENVUE_ERROR_ARGUMENT;
    }
    *key = line.key(index);
    *value = line.value(index);
    return 0;
}

int ardenvue_link_status(const ArdenvueLink* link, struct ArdenvueStatus* status) {
    const client::CameraState& state = link->state;
    *status = client::status_values(state.line, state.line_time);
    return state.line_time == 0 ? ARDENVUE_ERROR_NONE_YET : 0;
}

int ardenvue_link_gimbal_focus(const ArdenvueLink* link, struct ArdenvueGimbalFocus* record) {
    *record = link->state.gimbal_focus;
    return record->time_ns == 0 ? ARDENVUE_ERROR_NONE_YET : 0;
}

const char* ardenvue_focus_type_text(enum ArdenvueFocusType type) {
    const auto index = static_cast<std::size_t>(type) - 1;
    return index < std::size(client::focus_types) ? client::focus_types[index].reported.data() : "";
}

int ardenvue_link_histogram(const ArdenvueLink* link, struct ArdenvueHistogram* histogram) {
    *histogram = {};
    if (!link->state.has_histogram(client::monotonic_now())) {
        return ARDENVUE_ERROR_NONE_YET;
    }
    *histogram = link->state.histogram;
    return 0;
}
