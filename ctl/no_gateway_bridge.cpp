// In place of the bridge where there is no HTTP client to build it with: as on the Pi Zero W, whose
// executables are static.
#include <stdexcept>

#include "ctl/gateway_bridge.h"

namespace ctl {

class GatewayBridge::Threads {
  public:
    std::string url;
};

std::optional<std::string> find_gateway(const std::string& /*address*/, std::uint16_t /*status_port*/) {
    return std::nullopt;
}

GatewayBridge::GatewayBridge(const GatewayAddress& gateway, std::uint16_t /*port*/) {
    throw std::runtime_error(gateway.url + ": this build has no HTTP client");
}

GatewayBridge::~GatewayBridge() = default;

std::int64_t GatewayBridge::newest_frame() const {
    return 0;
}

const std::string& GatewayBridge::url() const {
    return threads_->url;
}

bool GatewayBridge::wait_for_answers(unsigned /*count*/) {
    return false;
}

}  // namespace ctl
