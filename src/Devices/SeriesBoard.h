#pragma once

#include <string>

namespace VeltranoSDK {

// A board's output lines, by their place in its description.
enum class BoardLine {
  kLaser1 = 1,
  kLaser2,
  kRangeRed,
  kRangeGreen,
  kRangeBlue,
  kLaserLed,
};

// Device nodes and line numbers of the selected series' board. While no series is
// selected they are empty, with an ERROR in the log, and their users fail to open.
std::string DaChipBus();
std::string DigitalPotBus();
std::string SensorBus();
std::string LineNumber(BoardLine line);

}  // namespace VeltranoSDK
