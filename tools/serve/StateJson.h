#pragma once

#include "Json.h"
#include "serve/ServedSensor.h"
#include "serve/StreamHub.h"

namespace tool::serve {

// What the sensor is and does. For any thread.
Json SensorJson(const ServedSensor& sensor, const PictureMaker& pictures);
// The clients of streams. For the network's thread.
Json ClientsJson(const StreamHub& hub);
// The library's counters, by stream. Asks the device.
Json StatisticsJson();

std::string_view NameOf(Stream stream);

}  // namespace tool::serve
