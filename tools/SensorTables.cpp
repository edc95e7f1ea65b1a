#include "SensorTables.h"

// The one file of the tool that looks into the library's sources: at data alone, which is
// that of the same build.
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
