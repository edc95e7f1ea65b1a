#pragma once

#include <string>

#include "serve/SensorState.h"
#include "serve/StreamHub.h"

namespace tool::serve {

// What a scrape shows besides the sensor's state.
struct MetricsInput {
  SensorState state;
  LineQuality quality;
  std::string model;
  std::string version;
  bool is_virtual = false;
  std::size_t clients = 0;
  std::size_t recorders = 0;
  double uptime = 0;
};

// The page /metrics, in the text format of Prometheus.
std::string MetricsText(const MetricsInput& input, const StreamHub& hub);

}  // namespace tool::serve
