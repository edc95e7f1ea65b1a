#include "Devices/peripheral/DaChip.h"

#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned char kAddress = 0x60;

}  // namespace

DaChip::DaChip() : i2c_(neighbour::DaChipBus(), kAddress) {}

bool DaChip::Write(int value) {
  Trace(__func__);
  // Above the upper four bits of the value are the power-down bits: all 0, powered.
  return i2c_.I2cRdWr(
      {static_cast<std::uint8_t>((value >> 8) & 0x0F), static_cast<std::uint8_t>(value & 0xFF)});
}

}  // namespace VeltranoSDK
