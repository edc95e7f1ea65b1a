#pragma once

#include <cstddef>

#include "Devices/sensor/SensorTable.h"
#include "sensor_tables/E2vControlMemories.h"
#include "sensor_tables/E2vFinalConfiguration.h"
#include "sensor_tables/E2vGain.h"
#include "sensor_tables/E2vHdr.h"
#include "sensor_tables/E2vLvdsTraining.h"
#include "sensor_tables/E2vReadoutMode.h"
#include "sensor_tables/E2vRegisters.h"
#include "sensor_tables/E2vTestImage.h"
#include "sensor_tables/Gmax2509Init.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/GsprintRecommended.h"
#include "sensor_tables/Imx252FixedSettings.h"

namespace VeltranoSDK {

// Must not lie beside sensor_tables/: a quoted include would look there first and miss an
// integrator's tables.

// Size and placeholders of one table in this build.
struct SensorTableSummary {
  template <typename Table>
  constexpr SensorTableSummary(const char* of_sensor, const char* in_header, const char* with_name,
                               const Table& table)
      : sensor(of_sensor),
        header(in_header),
        name(with_name),
        entries(table.size()),
        placeholders(CountPlaceholders(table)) {}

  const char* sensor;
  const char* header;
  const char* name;
  std::size_t entries;
  std::size_t placeholders;
};

// Every table that an integrator may supply, see docs/sensor-tables.md.
inline constexpr SensorTableSummary kSensorTables[]{
    {"IMX252", "Imx252FixedSettings.h", "kFixedSettings", imx252::kFixedSettings},
    {"GMAX2509", "Gmax2509Init.h", "kInitTable", gmax2509::kInitTable},
    {"GSPRINT6502BSI", "GsprintRecommended.h", "kRecommendedSettings",
     gsprint::kRecommendedSettings},
    {"GSPRINT6502BSI", "GsprintGain.h", "kGainRows", gsprint::kGainRows},
    {"e2v Flash 4K", "E2vRegisters.h", "kRegisters", e2v::kRegisters},
    {"e2v Flash 4K", "E2vControlMemories.h", "kControlMemories", e2v::kControlMemories},
    {"e2v Flash 4K", "E2vFinalConfiguration.h", "kFinalConfiguration", e2v::kFinalConfiguration},
    {"e2v Flash 4K", "E2vLvdsTraining.h", "kLvdsTraining", e2v::kLvdsTraining},
    {"e2v Flash 4K", "E2vTestImage.h", "kTestImageCheck", e2v::kTestImageCheck},
    {"e2v Flash 4K", "E2vReadoutMode.h", "kHalvedReadoutBits", e2v::kHalvedReadoutBits},
    {"e2v Flash 4K", "E2vGain.h", "kGainLow", e2v::kGainLow},
    {"e2v Flash 4K", "E2vGain.h", "kGainMiddle", e2v::kGainMiddle},
    {"e2v Flash 4K", "E2vGain.h", "kGainHigh", e2v::kGainHigh},
    {"e2v Flash 4K", "E2vHdr.h", "kHdrFirst", e2v::kHdrFirst},
    {"e2v Flash 4K", "E2vHdr.h", "kHdrSecond", e2v::kHdrSecond},
    {"e2v Flash 4K", "E2vHdr.h", "kHdrSquared", e2v::kHdrSquared},
};

}  // namespace VeltranoSDK
