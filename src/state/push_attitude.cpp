#include <cstddef>
#include <iterator>

#include "ardenvue.h"
#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "state/camera_state.h"
#include "state/pushes.h"

namespace {

struct SharedAttitude {
    bool is_opened;
    ardenvue::CameraState* record;  // null also when the object can't be had: that is not tried again
};

SharedAttitude shared_attitude{};

}  // namespace

void open_shared_attitude() {
    if (!shared_attitude.is_opened) {
        shared_attitude = {true, open_camera_state()};
    }
}

void decode_gimbal_attitude(PushPayload payload, TelemetryState& state) {
    const std::uint16_t second = load_le16(&payload[2]);
    const std::int16_t attitude[3] = {static_cast<std::int16_t>(load_le16(&payload[4])),
                                      static_cast<std::int16_t>(load_le16(&payload[0])),
                                      static_cast<std::int16_t>(0U - second)};
    for (std::size_t i = 0; i < std::size(attitude); ++i) {
        store_relaxed(state.attitude[i], attitude[i]);
    }
    if (shared_attitude.record != nullptr) {
        for (std::size_t i = 0; i < std::size(attitude); ++i) {
            store_release(shared_attitude.record->attitude[i], attitude[i]);
        }
    }
}
