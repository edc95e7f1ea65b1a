#include "Devices/peripheral/AD5175DigiPOT.h"

#include <algorithm>

#include "Devices/bus/Bytes.h"
#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned char kAddress = 0x2F;
constexpr unsigned int kSteps = 1024;
constexpr unsigned int kHighestStep = 1000;

// Bits 10 to 13 of a frame are the command, those below the data.
constexpr unsigned int kWriteWiper = 1u << 10;
constexpr unsigned int kWriteControl = 7u << 10;
constexpr unsigned int kWiperUnlocked = 0x02;

std::vector<std::uint8_t> BytesOf(unsigned int frame) { return {HighByte(frame), LowByte(frame)}; }

}  // namespace

AD5175DigiPOT::AD5175DigiPOT() : i2c_(neighbour::DigitalPotBus(), kAddress), resolution_(kSteps) {}

unsigned int AD5175DigiPOT::GetResolution() { return resolution_; }

bool AD5175DigiPOT::SetPosition(float percent) {
  Trace(__func__);
  if (!RemoveRegisterRdWrProtection()) return false;
  return SetPower(static_cast<unsigned short>(std::min(StepOf(percent, resolution_), 0xFFFFu)));
}

bool AD5175DigiPOT::SetPower(unsigned short code) {
  Trace(__func__);
  return i2c_.I2cRdWr(BytesOf(kWriteWiper | std::min<unsigned int>(code, kHighestStep)));
}

bool AD5175DigiPOT::RemoveRegisterRdWrProtection() {
  Trace(__func__);
  return i2c_.I2cRdWr(BytesOf(kWriteControl | kWiperUnlocked));
}

}  // namespace VeltranoSDK
