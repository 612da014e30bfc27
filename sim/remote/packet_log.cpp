#include "sim/remote/packet_log.h"

#include "formats/hex.h"

namespace sim {

bool PacketLog::open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "w"));
    // By lines, so that it can be followed while it grows.
    return file_ && std::setvbuf(file_.get(), nullptr, _IOLBF, BUFSIZ) == 0;
}

void PacketLog::add(Time time, formats::Direction direction, std::span<const std::uint8_t> packet,
                    const std::string& meaning) {
    if (!file_) {
        return;
    }
    const std::lock_guard lock{mutex_};
    std::fprintf(file_.get(), "%10.3f %s %s | %s\n", std::chrono::duration<double>(time).count(),
                 direction == formats::Direction::from_remote ? "to device  " : "from device",
                 formats::hex(packet).c_str(), meaning.c_str());
}

}  // namespace sim
