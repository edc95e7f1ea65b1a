#include "Devices/peripheral/LaserLed.h"

#include <cstdio>

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

LaserLed::LaserLed() : pin63_(neighbour::LineNumber(BoardLine::kLaserLed)) {
  if (!Close()) puts("error: LaserLed Close() ");
}

bool LaserLed::Open() {
  Trace(__func__);
  return Drive(pin63_, high_, kLaserLedTexts);
}

bool LaserLed::Close() {
  Trace(__func__);
  return Drive(pin63_, low_, kLaserLedTexts);
}

}  // namespace VeltranoSDK
