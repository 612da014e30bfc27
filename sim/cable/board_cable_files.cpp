// The kernel's side of the gadget files: one thread serves what the service does with them.
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "sim/cable/board_cable.h"
#include "sim/cable/board_file.h"
#include "sim/cable/owned.h"

namespace sim {
namespace {

using board_protocol::Kind;
using board_protocol::Result;

// How far the host may run ahead of the reader: about forty packets with their bookkeeping, so that neither
// side goes to sleep for every packet.
constexpr int out_queue_bytes = 64 * 1024;

void send_result(const BoardFile& file, int error) {
    const Result result{error, file.endpoint.max_packet};
    file.send(Kind::result, &result, sizeof result);
}

}  // namespace

BoardCable::BoardCable(std::string directory, std::vector<std::string> controllers,
                       std::vector<std::string> endpoints)
    : directory_{std::move(directory)},
      controllers_{std::move(controllers)},
      endpoints_{std::move(endpoints)},
      listener_{owned(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket")},
      wake_{owned(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")} {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = directory_ + "/cable";
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error("simulated cable: directory name too long: " + directory_);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_.get(), 16) != 0) {
        throw std::runtime_error("simulated cable: " + path + ": " + std::strerror(errno));
    }
    for (const std::string& name : controllers_) {
        owned(open((directory_ + "/dev/gadget/" + name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600),
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
    [[maybe_unused]] const ssize_t written = write(wake_.get(), &one, sizeof one);
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
        std::vector<pollfd> entries{{listener_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
        for (const FilePtr& file : files) {
            entries.push_back({file->connection.get(), POLLIN, 0});
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
    const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &out_queue_bytes, sizeof out_queue_bytes);
    const FilePtr file = std::make_shared<BoardFile>();
    file->connection = owned(fd, "accept");
    const std::lock_guard lock{mutex_};
    files_.push_back(file);
}

void BoardCable::receive_from(const FilePtr& file) {
    Kind kind{};
    iovec pieces[] = {{&kind, 1}, {message_.data(), message_.size()}};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    const ssize_t count = recvmsg(file->connection.get(), &message, MSG_DONTWAIT);
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
            unanswered_ = false;
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
        case Kind::withdraw:
            if (!file->writes.empty()) {
                file->writes.clear();
                file->send(Kind::withdrawn, nullptr, 0);
            }
            return;
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
    send_result(*file, error);
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
    send_result(*file, error);
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

int BoardCable::configure_endpoint(BoardFile& file, std::span<const std::uint8_t> content) const {
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

void BoardCable::take_transfers(BoardFile& file) {
    while (!in_held_ && !file.gone && !file.writes.empty()) {
        received_.push_back(std::move(file.writes.front()));
        file.writes.pop_front();
        file.send(Kind::taken, nullptr, 0);
    }
}

void BoardCable::disconnect_endpoints() {
    unanswered_ = false;
    for (const FilePtr& file : files_) {
        if (file != device_ && file->configured) {
            file->gone = true;
            file->writes.clear();
            shutdown(file->connection.get(), SHUT_WR);
        }
    }
}

void BoardCable::show_endpoint_files(bool show) {
    for (const std::string& name : endpoints_) {
        const std::string path = directory_ + "/dev/gadget/" + name;
        if (show) {
            owned(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600), "create");
        } else {
            unlink(path.c_str());
        }
    }
}

}  // namespace sim
