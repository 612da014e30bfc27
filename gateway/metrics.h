// The gateway's counters as Prometheus reads them (text exposition format 0.0.4).
#pragma once

#include <string>

#include "gateway/interface.h"

namespace gateway {

std::string metrics_text(const StationTotals& station, const VideoReader::Totals& video,
                         const ClientTotals& clients);

}  // namespace gateway
