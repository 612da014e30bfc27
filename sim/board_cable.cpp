#include "sim/board_cable.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

using board_protocol::Event;
using board_protocol::Kind;
using board_protocol::Result;
using Fd = std::shared_ptr<const int>;

constexpr std::size_t largest_packet = 512;
constexpr std::size_t send_batch = 64;  // packets handed to the kernel in one call
// How far the host may run ahead of the reader: about forty packets with their bookkeeping, so that neither
// side goes to sleep for every packet.
constexpr int out_queue_bytes = 64 * 1024;

Fd own(int fd, const char* what) {
    if (fd < 0) {
        throw std::runtime_error(std::string{"simulated cable: "} + what + ": " + std::strerror(errno));
    }
    return {new int{fd}, [](const int* owned) {
                close(*owned);
                delete owned;
            }};
}

void send_message(int fd, Kind kind, const void* data, std::size_t size) {
    iovec pieces[] = {{&kind, 1}, {const_cast<void*>(data), size}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    // A service that went away is noticed when its end of the connection is read.
    [[maybe_unused]] const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void send_result(int fd, int error, std::uint32_t max_packet) {
    const Result result{error, max_packet};
    send_message(fd, Kind::result, &result, sizeof result);
}

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

struct BoardCable::File {
    Fd fd;
    std::string name;  // empty until the library has said it
    bool configured = false;
    Bytes written;  // its configuration
    EndpointConfiguration endpoint{};
    std::deque<Bytes> writes;         // to an IN endpoint, not yet taken by the host
    std::atomic<bool> gone{false};    // the cable was pulled since, or the file closed
    std::atomic<bool> unread{false};  // closed with something unread

    bool is_open_endpoint(bool in) const {
        return configured && !gone && endpoint.address != 0 && ((endpoint.address & 0x80) != 0) == in;
    }

    // Waits until everything sent on the connection has been read; false when the time is up, or it never
    // will be.
    bool wait_until_read(std::chrono::steady_clock::time_point deadline) const {
        for (unsigned round = 0;; ++round) {
            const bool ended = gone;
            int pending = 0;
            ioctl(*fd, SIOCOUTQ, &pending);
            pollfd peer{*fd, 0, 0};
            const bool closed = poll(&peer, 1, 0) > 0;
            if (ended || (pending == 0 && !closed)) {
                return pending == 0 && !unread;
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            if (round < 50) {
                std::this_thread::yield();
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds{std::min(round, 1000U)});
            }
        }
    }
};

BoardCable::BoardCable(std::string directory, std::vector<std::string> controllers,
                       std::vector<std::string> endpoints)
    : directory_{std::move(directory)},
      controllers_{std::move(controllers)},
      endpoints_{std::move(endpoints)},
      listener_{own(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket")},
      wake_{own(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")} {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory_ + "/cable";
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("simulated cable: directory name too long: " + directory_);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (bind(*listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(*listener_, 16) != 0) {
        throw std::runtime_error("simulated cable: " + path + ": " + std::strerror(errno));
    }
    for (const std::string& name : controllers_) {
        own(open((directory_ + "/dev/gadget/" + name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600),
            "create");
    }
    server_ = std::thread{[this] { serve(); }};
}

BoardCable::~BoardCable() {
    {
        const std::lock_guard lock{mutex_};
        ending_ = true;
    }
    changed_.notify_all();
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(*wake_, &one, sizeof one);
    server_.join();
}

void BoardCable::serve() {
    for (;;) {
        std::vector<FilePtr> files;
        {
            const std::lock_guard lock{mutex_};
            if (ending_) {
                return;
            }
            files = files_;
        }
        std::vector<pollfd> entries{{*listener_, POLLIN, 0}, {*wake_, POLLIN, 0}};
        for (const FilePtr& file : files) {
            entries.push_back({*file->fd, POLLIN, 0});
        }
        if (poll(entries.data(), entries.size(), -1) < 0) {
            continue;
        }
        if (entries[0].revents != 0) {
            accept_file();
        }
        for (std::size_t index = 0; index < files.size(); ++index) {
            if (entries[index + 2].revents != 0) {
                receive_from(files[index]);
            }
        }
    }
}

void BoardCable::accept_file() {
    const int fd = accept4(*listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &out_queue_bytes, sizeof out_queue_bytes);
    const FilePtr file = std::make_shared<File>();
    file->fd = own(fd, "accept");
    const std::lock_guard lock{mutex_};
    files_.push_back(file);
}

void BoardCable::receive_from(const FilePtr& file) {
    Kind kind{};
    iovec pieces[] = {{&kind, 1}, {message_.data(), message_.size()}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    const ssize_t count = recvmsg(*file->fd, &message, MSG_DONTWAIT);
    const std::lock_guard lock{mutex_};
    if (count > 0) {
        handle(file, kind, std::span{message_}.first(static_cast<std::size_t>(count) - 1));
    } else if (count == 0 || errno != EAGAIN) {
        file->unread = count < 0;  // ECONNRESET
        close_file(file);
    }
    changed_.notify_all();
}

void BoardCable::handle(const FilePtr& file, Kind kind, std::span<const std::uint8_t> content) {
    const auto answer_request = [&](ControlStatus status) {
        if (!content.empty() && content[0] == request_) {
            answer_ = ControlResult{status, Bytes(content.begin() + 1, content.end())};
        }
    };
    switch (kind) {
        case Kind::open:
            return open_file(file, std::string(content.begin(), content.end()));
        case Kind::configure:
            return configure_file(file, content);
        case Kind::ack:
        case Kind::answer:
            return answer_request(ControlStatus::acknowledged);
        case Kind::stall:
            return answer_request(ControlStatus::stalled);
        case Kind::transfer:
            file->writes.emplace_back(content.begin(), content.end());
            return take_transfers(*file);
        case Kind::halt:
            ++halts_[file->name];
            return;
        case Kind::clear_halt:
            ++clear_halts_[file->name];
            return;
        default:
            return;
    }
}

void BoardCable::open_file(const FilePtr& file, const std::string& name) {
    const auto is_named = [&](const auto& names) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    const bool exists = is_named(controllers_) || (device_ && is_named(endpoints_));
    const bool busy =
        std::any_of(files_.begin(), files_.end(), [&](const FilePtr& one) { return one->name == name; });
    const int error = !exists ? ENOENT : busy ? EBUSY : 0;
    if (error == 0) {
        file->name = name;
    }
    send_result(*file->fd, error, 0);
}

void BoardCable::configure_file(const FilePtr& file, std::span<const std::uint8_t> content) {
    int error = 0;
    if (const auto refusal = refusals_.find(file->name); refusal != refusals_.end()) {
        error = refusal->second;
        refusals_.erase(refusal);
    } else {
        const bool controller =
            std::find(controllers_.begin(), controllers_.end(), file->name) != controllers_.end();
        error = controller ? configure_device(file, content) : configure_endpoint(*file, content);
    }
    if (error == 0) {
        file->written.assign(content.begin(), content.end());
        file->configured = true;
    }
    send_result(*file->fd, error, file->endpoint.max_packet);
}

int BoardCable::configure_device(const FilePtr& file, std::span<const std::uint8_t> content) {
    std::optional<DeviceConfiguration> parsed = parse_device_configuration(content);
    if (!parsed || device_) {
        return EINVAL;
    }
    configuration_ = std::move(*parsed);
    written_configuration_.assign(content.begin(), content.end());
    device_ = file;
    show_endpoint_files(true);
    return 0;
}

int BoardCable::configure_endpoint(File& file, std::span<const std::uint8_t> content) const {
    const std::optional<EndpointConfiguration> parsed = parse_endpoint_configuration(content, speed_);
    if (!parsed) {
        return EINVAL;
    }
    file.endpoint = *parsed;
    return 0;
}

void BoardCable::close_file(const FilePtr& file) {
    file->gone = true;
    std::erase(files_, file);
    if (file == device_) {
        device_.reset();
        speed_.reset();
        current_configuration_ = 0;
        disconnect_endpoints();
        show_endpoint_files(false);
    }
    changed_.notify_all();
}

void BoardCable::take_transfers(File& file) {
    while (!in_held_ && !file.gone && !file.writes.empty()) {
        received_.push_back(std::move(file.writes.front()));
        file.writes.pop_front();
        send_message(*file.fd, Kind::taken, nullptr, 0);
    }
}

void BoardCable::disconnect_endpoints() {
    for (const FilePtr& file : files_) {
        if (file != device_ && file->configured) {
            file->gone = true;
            file->writes.clear();
            shutdown(*file->fd, SHUT_WR);
        }
    }
}

void BoardCable::show_endpoint_files(bool show) {
    for (const std::string& name : endpoints_) {
        const std::string path = directory_ + "/dev/gadget/" + name;
        if (show) {
            own(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600), "create");
        } else {
            unlink(path.c_str());
        }
    }
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
        send_message(*device->fd, Kind::event, &message, sizeof message);
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
    send_message(*device->fd, Kind::forced_event, messages.data(), messages.size() * sizeof(Event));
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
    Event message{};
    const GadgetEvent event = setup_event(setup);
    std::copy(event.begin(), event.end(), message.record);
    message.request = ++request_;
    message.can_stall = can_stall ? 1 : 0;
    answer_.reset();
    send_message(*device->fd, Kind::event, &message, sizeof message);
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
        const int sent = sendmmsg(*file->fd, messages, count, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EAGAIN) {
            return false;
        }
        for (int index = 0; index < sent; ++index) {
            bytes = bytes.subspan(pieces[index][1].iov_len);
            empty_packet = false;
        }
        if (sent < static_cast<int>(count)) {
            pollfd room{*file->fd, POLLOUT, 0};
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
    send_message(*file->fd, Kind::packet, packet.data(), packet.size());
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
