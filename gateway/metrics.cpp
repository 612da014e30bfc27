#include "gateway/metrics.h"

#include <cstdio>

namespace gateway {
namespace {

class Exposition {
  public:
    void family(const char* name, const char* type, const char* help) {
        text_ += std::string{"# HELP "} + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
        name_ = name;
    }
    void sample(double value, const std::string& label = "") {
        char number[40];
        std::snprintf(number, sizeof number, "%.15g", value);
        text_ += name_ + (label.empty() ? "" : "{" + label + "}") + " " + number + "\n";
    }
    void single(const char* name, const char* type, const char* help, double value) {
        family(name, type, help);
        sample(value);
    }
    std::string text() && { return std::move(text_); }

  private:
    std::string text_;
    std::string name_;
};

double count(std::uint64_t value) {
    return static_cast<double>(value);
}

}  // namespace

std::string metrics_text(const StationTotals& station, const VideoReader::Totals& video,
                         const ClientTotals& clients) {
    Exposition out;
    out.family("ardenvue_link_state", "gauge",
               "1 for the state that the link to the remote controller is in.");
    for (const ArdenvueLinkState state : {ARDENVUE_LINK_DOWN, ARDENVUE_LINK_SILENT, ARDENVUE_LINK_LIVE}) {
        out.sample(station.link_state == state ? 1 : 0,
                   "state=\"" + std::string{link_state_words[state]} + "\"");
    }
    out.single("ardenvue_frames_total", "counter", "Frames of the live video read.", count(video.frames));
    out.single("ardenvue_video_bytes_total", "counter", "Bytes of the live video read.", count(video.bytes));
    out.single("ardenvue_frames_missed_total", "counter",
               "Frames that were overwritten before they were read.", count(video.missed));
    out.single("ardenvue_status_lines_total", "counter", "Status lines received.",
               count(station.link.status_lines));
    out.single("ardenvue_service_restarts_total", "counter",
               "Times that the service was met anew on another port.", count(station.link.restarts));
    out.family("ardenvue_report_age_seconds", "gauge", "Age of the newest report; absent before the first.");
    for (const auto& [report, name] :
         {std::pair{ARDENVUE_STATUS_LINE, "status"}, std::pair{ARDENVUE_GIMBAL_FOCUS, "gimbal"},
          std::pair{ARDENVUE_HISTOGRAM, "histogram"}}) {
        if (station.ages_ns[report] >= 0) {
            out.sample(static_cast<double>(station.ages_ns[report]) / 1e9,
                       std::string{"report=\""} + name + "\"");
        }
    }
    if (video.newest_ns != 0) {
        const auto age = Clock::now().time_since_epoch() - std::chrono::nanoseconds{video.newest_ns};
        out.single("ardenvue_frame_age_seconds", "gauge", "Age of the newest frame; absent before the first.",
                   in_seconds(age));
    }
    if (station.status) {
        out.single("ardenvue_battery_percent", "gauge",
                   "As the aircraft reports it; as old as the status report.",
                   station.status->battery_percent);
        out.single("ardenvue_recording_seconds", "gauge",
                   "Of the recording under way; as old as the status report.",
                   station.status->recording_seconds);
    }
    out.family("ardenvue_clients", "gauge", "Clients that are connected now.");
    out.sample(count(clients.viewers), "kind=\"video\"");
    out.sample(count(clients.listeners), "kind=\"events\"");
    out.sample(count(clients.connections), "kind=\"connections\"");
    out.single("ardenvue_clients_skipped_total", "counter",
               "Pictures passed over for viewers that were too slow.", count(clients.pictures_skipped));
    out.single("ardenvue_clients_dropped_total", "counter", "Clients dropped because they stood still.",
               count(clients.dropped));
    return std::move(out).text();
}

}  // namespace gateway
