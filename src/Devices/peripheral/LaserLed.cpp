#include "Devices/peripheral/LaserLed.h"

#include <cstdio>

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

LaserLed::LaserLed() : pin63_(neighbour::LineNumber(BoardLine::kLaserLed), kLaserLedTexts) {
  if (!Close()) puts("error: LaserLed Close() ");
}

bool LaserLed::Open() {
  Trace(__func__);
  return pin63_.Drive(SysfsGpio::kHigh);
}

bool LaserLed::Close() {
  Trace(__func__);
  return pin63_.Drive(SysfsGpio::kLow);
}

}  // namespace VeltranoSDK
