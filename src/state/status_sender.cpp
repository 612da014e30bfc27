#include "state/status_sender.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "io/udp_endpoint.h"
#include "io/usb_link.h"
#include "platform/clock.h"
#include "platform/little_endian.h"
#include "platform/relaxed.h"
#include "platform/saturate.h"
#include "state/status_line.h"

namespace {
MainAppTarget the_target;

constexpr std::uint32_t tick_ms = 100;
constexpr std::uint32_t line_period = 10;  // this and the two below: in ticks
constexpr std::uint32_t record_period = 2;
constexpr std::uint32_t notice_period = 5;
constexpr std::uint32_t histogram_validity_ms = 3000;

template <typename Record>
std::span<const std::uint8_t> bytes_of(const Record& record) {
    return {reinterpret_cast<const std::uint8_t*>(&record), sizeof record};
}

bool has_destination(const MainAppTarget& target) {
    return target.host != nullptr && target.port != 0;
}

// Thousandths of a coordinate, low 16 bits.
void store_coordinate(std::uint8_t (&field)[2], float coordinate) {
    const auto thousandths = saturating_cast<std::uint32_t>(static_cast<double>(coordinate * 1000.0F));
    store_le16(field, static_cast<std::uint16_t>(thousandths));
}

void expire_histogram(TelemetryState& telemetry) {
    // The time of the push is read first: one that arrives meanwhile can't lie in the future.
    const std::uint32_t pushed = load_relaxed(telemetry.histogram_time_ms);
    if (pushed != 0 && now_ms() - pushed > histogram_validity_ms) {
        store_relaxed(telemetry.histogram_time_ms, 0);
    }
}

void send_records(const TelemetryState& telemetry) {
    const MainAppTarget& target = main_app_target();
    if (!has_destination(target)) {
        return;
    }
    const ardenvue::GimbalFocusRecord gimbal_focus = gimbal_focus_record(telemetry);
    udp_endpoint_send_to(bytes_of(gimbal_focus), target.host, target.port);
    if (load_relaxed(telemetry.histogram_time_ms) != 0) {
        const ardenvue::HistogramRecord histogram = histogram_record(telemetry);
        udp_endpoint_send_to(bytes_of(histogram), target.host, target.port);
    }
}

void run_tick(std::uint32_t tick, TelemetryState& telemetry) {
    expire_histogram(telemetry);
    if (tick % line_period == 0) {
        udp_endpoint_check_timeout();
    }
    if (!usb_is_connected()) {
        return;
    }
    if (tick % line_period == 0) {
        format_status_line(telemetry);
    }
    if (tick % record_period == 0) {
        send_records(telemetry);
    }
    if (tick % notice_period == 0) {
        local_notify_send(recording_notice(telemetry));
    }
}

}  // namespace

MainAppTarget& main_app_target() {
    return the_target;
}

long format_status_line(const TelemetryState& telemetry) {
    char line[status_line_capacity] = {};
    const auto length = static_cast<std::uint16_t>(write_status_line(telemetry, line));
    const MainAppTarget& target = main_app_target();
    if (!has_destination(target)) {
        return length;
    }
    return udp_endpoint_send_to({reinterpret_cast<const std::uint8_t*>(line), length}, target.host,
                                target.port);
}

ardenvue::GimbalFocusRecord gimbal_focus_record(const TelemetryState& telemetry) {
    ardenvue::GimbalFocusRecord record{};
    record.type = ardenvue::record_type;
    record.subtype = ardenvue::gimbal_focus_subtype;
    record.orientation_lock = load_relaxed(telemetry.gimbal_orientation_lock);
    for (std::size_t i = 0; i < std::size(record.attitude); ++i) {
        store_le16(record.attitude[i], static_cast<std::uint16_t>(load_relaxed(telemetry.attitude[i])));
    }
    record.camera_flags_a = load_relaxed(telemetry.camera_flags_a);
    record.camera_flags_b = load_relaxed(telemetry.camera_flags_b);
    record.camera_flags_c = load_relaxed(telemetry.camera_flags_c);
    record.focus_valid = load_relaxed(telemetry.focus_valid);
    record.focus_mode = load_relaxed(telemetry.focus_mode);
    store_le16(record.focus_max, load_relaxed(telemetry.focus_max));
    store_le16(record.focus_position, load_relaxed(telemetry.focus_position));
    store_coordinate(record.focus_point_x, load_relaxed(telemetry.focus_point_x));
    store_coordinate(record.focus_point_y, load_relaxed(telemetry.focus_point_y));
    record.focus_aux_1 = load_relaxed(telemetry.focus_aux_1);
    record.focus_aux_2 = load_relaxed(telemetry.focus_aux_2);
    return record;
}

ardenvue::HistogramRecord histogram_record(const TelemetryState& telemetry) {
    ardenvue::HistogramRecord record{};
    record.type = ardenvue::record_type;
    record.subtype = ardenvue::histogram_subtype;
    for (std::size_t i = 0; i < std::size(record.histogram); ++i) {
        record.histogram[i] = load_relaxed(telemetry.histogram[i]);
    }
    return record;
}

const char* recording_notice(const TelemetryState& telemetry) {
    return load_relaxed(telemetry.camera_flags_a) >> 6 == 2 ? "rec_active" : "rec_inactive";
}

void* status_thread(void*) {
    TelemetryState& telemetry = *main_app_target().telemetry;
    for (std::uint32_t tick = 0;; ++tick) {
        run_tick(tick, telemetry);
        sleep_ms(tick_ms);
    }
}
