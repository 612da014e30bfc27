#include "sim/cable/usbfs_cable.h"

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <thread>
#include <utility>

#include "platform/file_descriptor.h"
#include "platform/little_endian.h"

namespace sim {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::uint16_t vendor_id = 0x18D1;
constexpr std::uint16_t product_id = 0x2D00;
constexpr unsigned interface_number = 0;
constexpr std::uint8_t in_address = 0x86;
constexpr std::uint8_t out_address = 0x02;
constexpr std::size_t packet_size = 512;       // USB 2.0, 5.8.3
constexpr std::size_t out_piece_size = 16384;  // of one transfer, what every usbfs takes
constexpr std::size_t out_pieces_in_flight = 4;
constexpr std::size_t in_reads_pending = 16;
constexpr Milliseconds enumeration_limit = 20s;
constexpr Milliseconds look_again_after = 20ms;

// One transfer that usbfs works on; its address is the URB's context. Guarded by the session's mutex. The URB
// ends in a flexible array, so it can't be a member.
struct Transfer {
    std::unique_ptr<usbdevfs_urb> urb = std::make_unique<usbdevfs_urb>();
    bool pending = false;
};

template <typename Condition>
bool wait_until(Milliseconds timeout, Condition condition) {
    const auto deadline = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(look_again_after);
    }
    return true;
}

// Opens the node of the device that shows our identifiers; reading a node gives the device's descriptor.
FileDescriptor open_device_node() {
    std::error_code ignored;
    for (const auto& node : std::filesystem::recursive_directory_iterator("/dev/bus/usb", ignored)) {
        FileDescriptor device{open(node.path().c_str(), O_RDWR | O_CLOEXEC)};
        std::array<std::uint8_t, 18> descriptor{};
        if (device &&
            read(device.get(), descriptor.data(), descriptor.size()) ==
                static_cast<ssize_t>(descriptor.size()) &&
            load_le16(&descriptor[8]) == vendor_id && load_le16(&descriptor[10]) == product_id) {
            return device;
        }
    }
    return FileDescriptor{};
}

}  // namespace

// One plugged-in device, from the claim of its interface until it is gone.
class UsbfsCable::Session {
  public:
    explicit Session(FileDescriptor device) : device_{std::move(device)} {
        for (std::size_t i = 0; i < in_reads_pending; ++i) {
            start(in_[i].transfer, in_address, in_[i].buffer);
        }
        reaper_ = std::thread{&Session::reap, this};
    }

    // The device must be gone, or the reaper waits for its transfers for ever.
    ~Session() { reaper_.join(); }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int device() const { return device_.get(); }

    bool send(std::span<const std::uint8_t> bytes) {
        std::array<Transfer, out_pieces_in_flight> transfers;
        std::unique_lock lock{mutex_};
        bool good = true;
        for (std::size_t piece = 0; good && !bytes.empty(); ++piece) {
            Transfer& transfer = transfers[piece % transfers.size()];
            good = finish(lock, transfer);
            if (good) {
                const auto part = bytes.first(std::min(bytes.size(), out_piece_size));
                // usbfs copies the bytes of an OUT transfer when it is submitted.
                good = start(transfer, out_address, {const_cast<std::uint8_t*>(part.data()), part.size()});
                bytes = bytes.subspan(part.size());
            }
        }
        for (Transfer& transfer : transfers) {
            good = finish(lock, transfer) && good;
        }
        return good;
    }

    bool gone() {
        const std::lock_guard lock{mutex_};
        return gone_;
    }

    std::optional<Bytes> receive(Milliseconds timeout) {
        std::unique_lock lock{mutex_};
        changed_.wait_for(lock, timeout, [this] { return gone_ || !received_.empty(); });
        if (received_.empty()) {
            return std::nullopt;
        }
        Bytes packet = std::move(received_.front());
        received_.pop_front();
        return packet;
    }

  private:
    struct Read {
        Transfer transfer;
        std::array<std::uint8_t, packet_size> buffer;
    };

    bool start(Transfer& transfer, std::uint8_t address, std::span<std::uint8_t> buffer) {
        std::memset(transfer.urb.get(), 0, sizeof *transfer.urb);
        transfer.urb->type = USBDEVFS_URB_TYPE_BULK;
        transfer.urb->endpoint = address;
        transfer.urb->buffer = buffer.data();
        transfer.urb->buffer_length = static_cast<int>(buffer.size());
        transfer.urb->usercontext = &transfer;
        transfer.pending = ioctl(device(), USBDEVFS_SUBMITURB, transfer.urb.get()) == 0;
        return transfer.pending;
    }

    // Waits for the end of a transfer; true when it carried all its bytes, or was never started.
    bool finish(std::unique_lock<std::mutex>& lock, Transfer& transfer) {
        // A device that goes may take transfers along that are never reaped.
        changed_.wait(lock, [&] { return !transfer.pending || gone_; });
        return !transfer.pending && transfer.urb->status == 0 &&
               transfer.urb->actual_length == transfer.urb->buffer_length;
    }

    void reap() {
        usbdevfs_urb* urb = nullptr;
        while (ioctl(device(), USBDEVFS_REAPURB, &urb) == 0 || errno == EINTR) {
            if (urb != nullptr) {
                complete(*static_cast<Transfer*>(std::exchange(urb, nullptr)->usercontext));
            }
        }
        const std::lock_guard lock{mutex_};
        gone_ = true;
        changed_.notify_all();
    }

    void complete(Transfer& transfer) {
        const std::lock_guard lock{mutex_};
        transfer.pending = false;
        if (transfer.urb->endpoint == in_address && transfer.urb->status == 0) {
            const auto* bytes = static_cast<const std::uint8_t*>(transfer.urb->buffer);
            received_.emplace_back(bytes, bytes + transfer.urb->actual_length);
            start(transfer, in_address, {static_cast<std::uint8_t*>(transfer.urb->buffer), packet_size});
        }
        changed_.notify_all();
    }

    FileDescriptor device_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Bytes> received_;
    bool gone_ = false;
    std::array<Read, in_reads_pending> in_;
    std::thread reaper_;
};

UsbfsCable::UsbfsCable(std::filesystem::path port_switch) : port_switch_{std::move(port_switch)} {
    power_port(false);
}

UsbfsCable::~UsbfsCable() {
    pull();
}

void UsbfsCable::power_port(bool on) {
    std::ofstream{port_switch_} << (on ? '0' : '1') << std::flush;
}

std::shared_ptr<UsbfsCable::Session> UsbfsCable::session() {
    const std::lock_guard lock{mutex_};
    return session_;
}

bool UsbfsCable::wait_for_device(Milliseconds timeout) {
    return wait_until(timeout, [] {
        // A controller that has a gadget names it here.
        std::error_code ignored;
        for (const auto& udc : std::filesystem::directory_iterator("/sys/class/udc", ignored)) {
            std::string function;
            if (std::ifstream{udc.path() / "function"} >> function) {
                return true;
            }
        }
        return false;
    });
}

bool UsbfsCable::plug(Speed speed) {
    if (const auto before = session(); before && !before->gone()) {
        pull();
    }
    power_port(true);
    FileDescriptor device;
    const bool enumerated = wait_until(enumeration_limit, [&] {
        unsigned number = interface_number;
        device = open_device_node();
        return device && ioctl(device.get(), USBDEVFS_CLAIMINTERFACE, &number) == 0;
    });
    if (!enumerated || ioctl(device.get(), USBDEVFS_GET_SPEED) != static_cast<int>(speed)) {
        power_port(false);
        return false;
    }
    const std::lock_guard lock{mutex_};
    session_ = std::make_shared<Session>(std::move(device));
    return true;
}

void UsbfsCable::pull() {
    power_port(false);
    const std::lock_guard lock{mutex_};
    session_.reset();
}

ControlResult UsbfsCable::control(const SetupPacket& setup, Milliseconds timeout) {
    const auto session = this->session();
    if (!session) {
        return {ControlStatus::no_answer, {}};
    }
    if (setup.request_type == 0 && setup.request == USB_REQ_SET_CONFIGURATION) {
        const ControlResult current = control({0x80, USB_REQ_GET_CONFIGURATION, 0, 0, 1}, timeout);
        if (current.data == Bytes{static_cast<std::uint8_t>(setup.value)}) {
            return {ControlStatus::acknowledged, {}};
        }
    }
    Bytes data(setup.length);
    usbdevfs_ctrltransfer transfer{};
    transfer.bRequestType = setup.request_type;
    transfer.bRequest = setup.request;
    transfer.wValue = setup.value;
    transfer.wIndex = setup.index;
    transfer.wLength = setup.length;
    transfer.timeout = static_cast<std::uint32_t>(timeout.count());
    transfer.data = data.data();
    const int length = ioctl(session->device(), USBDEVFS_CONTROL, &transfer);
    if (length < 0) {
        return {errno == EPIPE ? ControlStatus::stalled : ControlStatus::no_answer, {}};
    }
    data.resize(static_cast<std::size_t>(length));
    return {ControlStatus::acknowledged, std::move(data)};
}

bool UsbfsCable::wait_for_endpoints(Milliseconds /*timeout*/) {
    return session() != nullptr;
}

bool UsbfsCable::bulk_out(std::span<const std::uint8_t> bytes) {
    const auto session = this->session();
    return session && session->send(bytes);
}

std::optional<Bytes> UsbfsCable::bulk_in(Milliseconds timeout) {
    const auto session = this->session();
    return session ? session->receive(timeout) : std::nullopt;
}

std::filesystem::path dummy_host_port_switch() {
    std::error_code ignored;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator("/sys/devices/platform/dummy_hcd.0", ignored)) {
        if (entry.path().filename() == "disable" && entry.path().parent_path().filename() != "power") {
            return entry.path();
        }
    }
    return {};
}

}  // namespace sim
