#include "Devices/peripheral/TPL0401B.h"

#include "Devices/bus/Bytes.h"
#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned char kAddress = 0x3E;
constexpr std::uint8_t kWiperRegister = 0x00;
constexpr unsigned int kSteps = 128;
constexpr unsigned int kHighestStep = kSteps - 1;

}  // namespace

TPL0401B::TPL0401B() : resolution_(kSteps), i2c_(neighbour::DigitalPotBus(), kAddress) {}

unsigned int TPL0401B::GetResolution() { return resolution_; }

bool TPL0401B::SetPosition(float percent) {
  Trace(__func__);
  const unsigned int step = StepOf(percent, resolution_) & 0xFFFFu;
  const unsigned int code = kHighestStep - (step < kSteps ? step : kHighestStep);
  return i2c_.I2cRdWr({kWiperRegister, LowByte(code)});
}

}  // namespace VeltranoSDK
