#include "Devices/peripheral/DaChip.h"

#include "Devices/bus/Bytes.h"
#include "Neighbours.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned char kAddress = 0x60;

}  // namespace

DaChip::DaChip() : i2c_(neighbour::DaChipBus(), kAddress) {}

bool DaChip::Write(int value) {
  Trace(__func__);
  // The bits above the value are the power-down bits: 0 means powered.
  const unsigned int code = value & 0x0FFF;
  return i2c_.I2cRdWr({HighByte(code), LowByte(code)});
}

}  // namespace VeltranoSDK
