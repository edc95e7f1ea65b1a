#include "SensorTables.h"

// The only file of the tool that reads the library's sources: only data, from the same build.
#include "Devices/sensor/SensorTableList.h"

namespace tool {

std::vector<SensorTable> SensorTables() {
  std::vector<SensorTable> tables;
  for (const auto& table : VeltranoSDK::kSensorTables) {
    tables.push_back({table.sensor, table.header, table.name, table.entries, table.placeholders});
  }
  return tables;
}

}  // namespace tool
