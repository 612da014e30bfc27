#include "gateway/event_log.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::array<std::string_view, event_kinds> names{"control", "command", "video", "service",
                                                          "viewers"};

void write(std::string& text, std::string_view name, std::uint64_t id, std::string_view data) {
    text.append("event: ").append(name);
    if (id != 0) {
        text.append("\nid: ").append(std::to_string(id));
    }
    text.append("\ndata: ").append(data).append("\n\n");
}

}  // namespace

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k > bytes.size() ? '=' : digits[group >> (18 - 6 * k) & 0x3F];
        }
    }
    return text;
}

void EventLog::add(EventKind kind, const std::string& data) {
    events_.push_back({++last_id_, kind, data});
    newest_[static_cast<std::size_t>(kind)] = events_.back();
    if (events_.size() > most_events) {
        events_.pop_front();
    }
}

void EventLog::set_state(std::string json) {
    state_ = std::move(json);
    state_version_ += 1;
}

void EventLog::add_report(std::string_view datagram) {
    reports_.push_back(base64(datagram));
    last_report_ += 1;
    if (reports_.size() > most_reports) {
        reports_.pop_front();
    }
}

void EventLog::begin(Listener& listener, std::string& text) const {
    listener.has_begun = true;
    listener.report = last_report_;
    text.append("retry: 1000\n\n");
    const bool comes_back = listener.after != 0 && listener.after <= last_id_;
    for (const Event& event : events_) {
        if (comes_back && event.id > listener.after && event.kind == EventKind::command) {
            write(text, names[static_cast<std::size_t>(event.kind)], event.id, event.data);
        }
    }
    for (const Event& event : newest_) {
        if (event.id != 0 && event.kind != EventKind::command) {
            write(text, names[static_cast<std::size_t>(event.kind)], event.id, event.data);
        }
    }
    listener.after = last_id_;
}

void EventLog::tell(Listener& listener, TimePoint now, std::string& text) const {
    const std::size_t size = text.size();
    if (!listener.has_begun) {
        begin(listener, text);
    }
    for (const Event& event : events_) {
        if (event.id > listener.after) {
            write(text, names[static_cast<std::size_t>(event.kind)], event.id, event.data);
        }
    }
    listener.after = last_id_;
    if (std::exchange(listener.state, state_version_) != state_version_) {
        write(text, "state", 0, state_);
    }
    const std::uint64_t heard = std::max(listener.report, last_report_ - reports_.size());
    for (std::uint64_t report = heard; listener.hears_reports && report < last_report_; ++report) {
        write(text, "report", 0, reports_[static_cast<std::size_t>(report + reports_.size() - last_report_)]);
    }
    listener.report = last_report_;
    if (text.size() == size && now - listener.last_sent >= heartbeat) {
        text.append(":\n\n");
    }
    if (text.size() != size) {
        listener.last_sent = now;
    }
}

bool EventLog::has_news(const Listener& listener, TimePoint now) const {
    return !listener.has_begun || listener.after != last_id_ || listener.state != state_version_ ||
           (listener.hears_reports && listener.report != last_report_) ||
           now - listener.last_sent >= heartbeat;
}

}  // namespace gateway
