// The status line, once a second in flight: its thirty-four pairs, texts read while another thread may write
// them.
#include <benchmark/benchmark.h>

#include "platform/relaxed.h"
#include "state/status_line.h"

namespace {

void write_line(benchmark::State& state) {
    TelemetryState telemetry{};
    store_text(telemetry.camera_model, "Phantom 4 Pro V2.0");
    store_text(telemetry.record_time_text, "00:12:34");
    store_text(telemetry.record_left_text, "01:02:05");
    store_text(telemetry.resolution_text, "3840x2160");
    store_text(telemetry.frame_rate_text, "30");
    store_text(telemetry.shutter_text, "1/500");
    telemetry.battery_temperature = 253;
    telemetry.wb_temperature = 5600;
    char line[status_line_capacity];
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(write_status_line(telemetry, line));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(write_line);

}  // namespace

BENCHMARK_MAIN();
