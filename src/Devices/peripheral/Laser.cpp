#include "Devices/peripheral/Laser.h"

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

Laser::Laser()
    : pin1_(neighbour::LineNumber(BoardLine::kLaser1), kLaserPin1Texts),
      pin28_(neighbour::LineNumber(BoardLine::kLaser2), kLaserPin28Texts) {}

bool Laser::Open() {
  Trace(__func__);
  return pin1_.Drive(SysfsGpio::kHigh) && pin28_.Drive(SysfsGpio::kHigh);
}

bool Laser::Close() {
  Trace(__func__);
  return pin1_.Drive(SysfsGpio::kLow) && pin28_.Drive(SysfsGpio::kLow);
}

}  // namespace VeltranoSDK
