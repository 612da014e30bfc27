#include "sim/cable/board_cable.h"

#include <linux/usb/ch9.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "sim/cable/board_file.h"

namespace sim {
namespace {

using board_protocol::Event;
using board_protocol::Kind;

constexpr std::size_t largest_packet = 512;
constexpr std::size_t send_batch = 64;  // packets handed to the kernel in one call
GadgetEvent event_of(std::uint32_t type) {
    GadgetEvent event{};
    event[8] = static_cast<std::uint8_t>(type);
    return event;
}

}  // namespace

GadgetEvent connect_event(Speed speed) {
    GadgetEvent event = event_of(1);
    event[0] = static_cast<std::uint8_t>(speed);
    return event;
}

GadgetEvent disconnect_event() {
    return event_of(2);
}

GadgetEvent suspend_event() {
    return event_of(4);
}

GadgetEvent setup_event(const SetupPacket& setup) {
    GadgetEvent event = event_of(3);
    event[0] = setup.request_type;
    event[1] = setup.request;
    const std::uint16_t words[] = {setup.value, setup.index, setup.length};
    for (std::size_t index = 0; index < 3; ++index) {
        event[2 + 2 * index] = static_cast<std::uint8_t>(words[index]);
        event[3 + 2 * index] = static_cast<std::uint8_t>(words[index] >> 8);
    }
    return event;
}

bool BoardCable::wait_for_device(Milliseconds timeout) {
    std::unique_lock lock{mutex_};
    return changed_.wait_for(lock, timeout, [this] { return device_ != nullptr || ending_; }) && device_;
}

bool BoardCable::wait_until_closed(Milliseconds timeout) {
    std::unique_lock lock{mutex_};
    return changed_.wait_for(lock, timeout, [this] { return files_.empty(); });
}

bool BoardCable::plug(Speed speed) {
    const std::lock_guard one_at_a_time{control_};
    {
        const std::lock_guard lock{mutex_};
        if (!device_) {
            return false;
        }
        disconnect_endpoints();
        speed_ = configuration_.high_speed.empty() ? Speed::full : speed;
        current_configuration_ = 0;
        received_.clear();
        speed = *speed_;
    }
    deliver_event(connect_event(speed), event_patience_);
    deliver_event(disconnect_event(), event_patience_);
    deliver_event(connect_event(speed), event_patience_);
    return true;
}

void BoardCable::pull() {
    {
        const std::lock_guard lock{mutex_};
        if (!speed_) {
            return;
        }
        disconnect_endpoints();
        speed_.reset();
        current_configuration_ = 0;
    }
    changed_.notify_all();
    deliver_event(disconnect_event(), Milliseconds{0});
}

// Sends one event, and gives the service a while to read it before the next makes it void.
void BoardCable::deliver_event(const GadgetEvent& event, Milliseconds timeout) {
    FilePtr device;
    {
        const std::lock_guard lock{mutex_};
        device = device_;
    }
    if (device) {
        Event message{};
        std::copy(event.begin(), event.end(), message.record);
        device->send(Kind::event, &message, sizeof message);
        device->wait_until_read(std::chrono::steady_clock::now() + timeout);
    }
}

bool BoardCable::inject(const std::vector<GadgetEvent>& events, Milliseconds timeout) {
    FilePtr device;
    {
        const std::lock_guard lock{mutex_};
        device = device_;
    }
    if (!device || events.size() > board_protocol::event_batch) {
        return false;
    }
    std::vector<Event> messages(events.size());
    for (std::size_t index = 0; index < events.size(); ++index) {
        std::copy(events[index].begin(), events[index].end(), messages[index].record);
        messages[index].can_stall = 1;
    }
    device->send(Kind::forced_event, messages.data(), messages.size() * sizeof(Event));
    return device->wait_until_read(std::chrono::steady_clock::now() + timeout);
}

ControlResult BoardCable::control(const SetupPacket& setup, Milliseconds timeout) {
    {
        const std::lock_guard lock{mutex_};
        if (!device_ || !speed_) {
            return {ControlStatus::no_answer, {}};
        }
        if (std::optional<ControlResult> answer =
                answer_of_kernel(setup, configuration_, *speed_, current_configuration_)) {
            // gadgetfs answers nothing of its own before the service has answered the newest request, and
            // takes no late answer to an older one.
            if (unanswered_) {
                ++request_;
                return {ControlStatus::no_answer, {}};
            }
            return *answer;
        }
        if (is_set_configuration(setup)) {
            current_configuration_ = static_cast<std::uint8_t>(setup.value);
        }
    }
    // The kernel has accepted a configuration before the service hears of it, which cannot refuse it then.
    return ask_service(setup, !is_set_configuration(setup), timeout);
}

ControlResult BoardCable::control_past_kernel(const SetupPacket& setup, Milliseconds timeout) {
    return ask_service(setup, true, timeout);
}

ControlResult BoardCable::ask_service(const SetupPacket& setup, bool can_stall, Milliseconds timeout) {
    const std::lock_guard one_at_a_time{control_};
    std::unique_lock lock{mutex_};
    if (!device_) {
        return {ControlStatus::no_answer, {}};
    }
    const FilePtr device = device_;
    // The kernel takes the data of a request right away, and with it the request.
    const bool is_taken = (setup.request_type & USB_DIR_IN) == 0 && setup.length > 0;
    Event message{};
    const GadgetEvent event = setup_event(setup);
    std::copy(event.begin(), event.end(), message.record);
    message.request = ++request_;
    message.can_stall = can_stall && !is_taken ? 1 : 0;
    answer_.reset();
    unanswered_ = true;
    device->send(Kind::event, &message, sizeof message);
    if (is_taken) {
        return {ControlStatus::acknowledged, {}};
    }
    changed_.wait_for(lock, timeout, [&] { return answer_ || device->gone; });
    return answer_ ? *answer_ : ControlResult{ControlStatus::no_answer, {}};
}

BoardCable::FilePtr BoardCable::out_endpoint() {
    const std::lock_guard lock{mutex_};
    const auto found = std::find_if(files_.begin(), files_.end(),
                                    [](const FilePtr& file) { return file->is_open_endpoint(false); });
    return found == files_.end() ? nullptr : *found;
}

bool BoardCable::bulk_out(std::span<const std::uint8_t> bytes) {
    const FilePtr file = out_endpoint();
    if (!file) {
        return false;
    }
    Kind kind = Kind::packet;
    iovec pieces[send_batch][2];
    mmsghdr messages[send_batch] = {};
    bool empty_packet = bytes.empty();
    while (!bytes.empty() || empty_packet) {
        unsigned count = 0;
        std::span<const std::uint8_t> rest = bytes;
        do {
            const std::size_t size = std::min<std::size_t>(rest.size(), file->endpoint.max_packet);
            pieces[count][0] = {&kind, 1};
            pieces[count][1] = {const_cast<std::uint8_t*>(rest.data()), size};
            messages[count].msg_hdr.msg_iov = pieces[count];
            messages[count].msg_hdr.msg_iovlen = 2;
            rest = rest.subspan(size);
            ++count;
        } while (count < send_batch && !rest.empty());
        const int sent = sendmmsg(file->connection.get(), messages, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN) {
            return false;
        }
        for (int index = 0; index < sent; ++index) {
            bytes = bytes.subspan(pieces[index][1].iov_len);
            empty_packet = false;
        }
        if (sent < static_cast<int>(count)) {
            pollfd room{file->connection.get(), POLLOUT, 0};
            poll(&room, 1, 20);
        }
    }
    return file->wait_until_read(std::chrono::steady_clock::time_point::max());
}

bool BoardCable::send_packet(std::span<const std::uint8_t> packet) {
    const FilePtr file = out_endpoint();
    if (!file || packet.size() > largest_packet) {
        return false;
    }
    file->send(Kind::packet, packet.data(), packet.size());
    return true;
}

std::optional<Bytes> BoardCable::bulk_in(Milliseconds timeout) {
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, timeout, [this] { return !received_.empty() || !device_; });
    if (received_.empty()) {
        return std::nullopt;
    }
    Bytes packet = std::move(received_.front());
    received_.pop_front();
    return packet;
}

void BoardCable::set_event_patience(Milliseconds patience) {
    const std::lock_guard lock{control_};
    event_patience_ = patience;
}

void BoardCable::hold_in(bool hold) {
    const std::lock_guard lock{mutex_};
    in_held_ = hold;
    for (const FilePtr& file : files_) {
        take_transfers(*file);
    }
    changed_.notify_all();
}

std::optional<Bytes> BoardCable::device_configuration() {
    const std::lock_guard lock{mutex_};
    return device_ ? std::optional{written_configuration_} : std::nullopt;
}

std::vector<Bytes> BoardCable::endpoint_configurations() {
    const std::lock_guard lock{mutex_};
    std::vector<Bytes> written;
    for (const FilePtr& file : files_) {
        if (file != device_ && file->configured) {
            written.push_back(file->written);
        }
    }
    return written;
}

std::vector<std::string> BoardCable::open_endpoints() {
    const std::lock_guard lock{mutex_};
    std::vector<std::string> names;
    for (const FilePtr& file : files_) {
        if (file != device_ && file->configured) {
            names.push_back(file->name);
        }
    }
    return names;
}

bool BoardCable::wait_for_endpoints(Milliseconds timeout) {
    std::unique_lock lock{mutex_};
    const auto has_out = [](const FilePtr& file) { return file->is_open_endpoint(false); };
    return changed_.wait_for(lock, timeout,
                             [&] { return std::any_of(files_.begin(), files_.end(), has_out); });
}

void BoardCable::refuse_configuration(const std::string& file, int error) {
    const std::lock_guard lock{mutex_};
    refusals_[file] = error;
}

unsigned BoardCable::clear_halts(const std::string& file) {
    const std::lock_guard lock{mutex_};
    return clear_halts_[file];
}

unsigned BoardCable::halts(const std::string& file) {
    const std::lock_guard lock{mutex_};
    return halts_[file];
}

}  // namespace sim
