#include "camera_end.h"

#include "commands/dispatcher.h"
#include "fuzz.h"
#include "io/usb_link.h"
#include "sim/aircraft/camera.h"

namespace {
std::vector<sim::Bytes> sent;
}

// In place of io/usb_link: the cable ends here.
int usb_write_locked(std::span<const std::uint8_t> packet) {
    sent.emplace_back(packet.begin(), packet.end());
    return static_cast<int>(packet.size());
}
bool usb_is_connected() {
    return true;
}

std::vector<std::string> fuzz::dispatch(const std::string& datagram) {
    static std::uint16_t sequence = 0;
    sent.clear();
    command_dispatch(datagram.c_str());
    sim::Camera camera;
    std::vector<std::string> meanings;
    for (const sim::Bytes& packet : sent) {
        for (const sim::ReceivedPacket& received : camera.receive(packet, sim::Time{0})) {
            meanings.push_back(received.meaning);
            const bool complaint = received.meaning.starts_with("COMPLAINT");
            require(!complaint || received.meaning.ends_with("has no meaning"), received.meaning);
        }
        require(packet[6] + 256 * packet[7] == sequence++, "sequence number");
    }
    return meanings;
}
