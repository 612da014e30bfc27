// The simulated cable: the host side of the gadget files that the board's preload library gives the service.
// It answers for the kernel too: checks what is written to the files, makes the endpoint files appear,
// answers the requests that a kernel answers itself.
#pragma once

#include <array>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/file_descriptor.h"
#include "sim/board_library/board_protocol.h"
#include "sim/cable/board_kernel.h"
#include "sim/cable/cable.h"

namespace sim {

// One event of linux/usb/gadgetfs.h.
using GadgetEvent = std::array<std::uint8_t, board_protocol::event_size>;
GadgetEvent connect_event(Speed speed);
GadgetEvent disconnect_event();
GadgetEvent suspend_event();
GadgetEvent setup_event(const SetupPacket& setup);

struct BoardFile;

class BoardCable final : public Cable {
  public:
    // Serves the gadget files of the board in the directory. controllers are the files that are there from
    // the start, endpoints those that appear when a configuration was accepted.
    BoardCable(std::string directory, std::vector<std::string> controllers,
               std::vector<std::string> endpoints);
    ~BoardCable() override;
    BoardCable(const BoardCable&) = delete;
    BoardCable& operator=(const BoardCable&) = delete;

    bool wait_for_device(Milliseconds timeout) override;
    // Connect, disconnect, connect: the reset that ends the enumeration at the default address shows as the
    // one in the middle.
    bool plug(Speed speed) override;
    void pull() override;
    ControlResult control(const SetupPacket& setup, Milliseconds timeout) override;
    bool bulk_out(std::span<const std::uint8_t> bytes) override;
    std::optional<Bytes> bulk_in(Milliseconds timeout) override;
    std::optional<Bytes> device_configuration() override;
    std::vector<Bytes> endpoint_configurations() override;

    // ---- What only a simulated board can do ----

    // Hands the request to the service, whoever would answer it on a real board; any of them can be stalled,
    // but those with data for the device.
    ControlResult control_past_kernel(const SetupPacket& setup, Milliseconds timeout);

    // Queues events as they are, to be read in one go; true when the service has read them in time.
    bool inject(const std::vector<GadgetEvent>& events, Milliseconds timeout);

    // Sends one packet of any size up to 512, none included, to the OUT endpoint, without waiting until it
    // has been read. False when there is no such endpoint.
    bool send_packet(std::span<const std::uint8_t> packet);

    // While held, the host does not ask for IN packets: a write of the service blocks.
    void hold_in(bool hold);

    // How long plug waits for the service to read one event before it sends the next; 2 s if never set.
    void set_event_patience(Milliseconds patience);

    // The next configuration of a file (the controller or an endpoint) is refused with this error number.
    void refuse_configuration(const std::string& file, int error);

    // How often the file's halt was cleared, and how often a transfer in the wrong direction halted it.
    unsigned clear_halts(const std::string& file);
    unsigned halts(const std::string& file);

    // Names of the data endpoint files open and configured now.
    std::vector<std::string> open_endpoints();

    // Waits until no gadget file is open any more: after the end of a service, before the next is started.
    bool wait_until_closed(Milliseconds timeout);

    // Waits until an OUT endpoint is configured.
    bool wait_for_endpoints(Milliseconds timeout);

  private:
    using FilePtr = std::shared_ptr<BoardFile>;

    void serve();
    void accept_file();
    void receive_from(const FilePtr& file);
    void handle(const FilePtr& file, board_protocol::Kind kind, std::span<const std::uint8_t> content);
    void open_file(const FilePtr& file, const std::string& name);
    void configure_file(const FilePtr& file, std::span<const std::uint8_t> content);
    int configure_device(const FilePtr& file, std::span<const std::uint8_t> content);
    int configure_endpoint(BoardFile& file, std::span<const std::uint8_t> content) const;
    void close_file(const FilePtr& file);
    void take_transfers(BoardFile& file);
    void disconnect_endpoints();
    void show_endpoint_files(bool show);
    void deliver_event(const GadgetEvent& event, Milliseconds timeout);
    ControlResult ask_service(const SetupPacket& setup, bool can_stall, Milliseconds timeout);
    FilePtr out_endpoint();

    const std::string directory_;
    const std::vector<std::string> controllers_;
    const std::vector<std::string> endpoints_;
    FileDescriptor listener_;
    FileDescriptor wake_;

    std::mutex control_;  // one request, one plugging at a time
    Milliseconds event_patience_{2'000};
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    bool ending_ = false;
    std::vector<FilePtr> files_;
    FilePtr device_;  // the controller's file, once configured
    Bytes written_configuration_;
    DeviceConfiguration configuration_;
    std::optional<Speed> speed_;  // while plugged
    std::uint8_t current_configuration_ = 0;
    std::uint8_t request_ = 0;  // number of the newest request handed to the service
    std::optional<ControlResult> answer_;
    bool unanswered_ = false;     // the newest request is still with the service
    std::deque<Bytes> received_;  // IN packets that the host has taken
    bool in_held_ = false;
    std::map<std::string, int> refusals_;
    std::map<std::string, unsigned> clear_halts_;
    std::map<std::string, unsigned> halts_;

    Bytes message_ = Bytes(65'536);  // used by the server thread alone
    std::thread server_;
};

}  // namespace sim
