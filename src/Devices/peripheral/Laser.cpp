#include "Devices/peripheral/Laser.h"

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

Laser::Laser()
    : pin1_(neighbour::LineNumber(BoardLine::kLaser1)),
      pin28_(neighbour::LineNumber(BoardLine::kLaser2)) {}

bool Laser::Open() {
  Trace(__func__);
  return DriveBoth(high_);
}

bool Laser::Close() {
  Trace(__func__);
  return DriveBoth(low_);
}

bool Laser::DriveBoth(const std::string& value) const {
  return Drive(pin1_, value, kLaserPin1Texts) && Drive(pin28_, value, kLaserPin28Texts);
}

}  // namespace VeltranoSDK
