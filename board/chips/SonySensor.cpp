#include "chips/SonySensor.h"

#include <cmath>
#include <cstddef>

namespace board {
namespace {

constexpr std::uint16_t kStandby = 0x3000;
constexpr std::uint16_t kReadoutMode = 0x300D;
constexpr std::uint16_t kFlip = 0x300E;
constexpr std::uint16_t kFrameLines = 0x3010;
constexpr std::uint16_t kLineClocks = 0x3014;
constexpr std::uint16_t kTemperatureLatch = 0x301D;
constexpr std::uint16_t kTemperatureCode = 0x301E;
constexpr std::uint16_t kIdentification = 0x3148;
constexpr std::uint16_t kGain = 0x3204;
constexpr std::uint16_t kCropEnable = 0x3300;
constexpr std::uint16_t kCropX = 0x3310;
constexpr std::uint16_t kCropY = 0x3312;

constexpr std::uint8_t kStandbyBit = 1;
constexpr std::uint8_t kLatchBit = 1;
constexpr std::uint8_t kCropXBit = 1;
constexpr std::uint8_t kCropYBit = 2;
constexpr std::uint8_t kFlipVerticalBit = 1;
constexpr std::uint8_t kFlipHorizontalBit = 2;

constexpr unsigned kGainMask = 0x1FF;  // units of 0.1 dB
constexpr unsigned kCropXMask = 0x1FFF;
constexpr unsigned kCropYMask = 0x0FFF;
constexpr unsigned kFrameLinesMask = 0xFFFF;
constexpr unsigned kLineClocksMask = 0xFFFF;

constexpr double kLineClockMHz = 74.25;

// A 10-bit code in the middle of the range, for a chip at working temperature.
constexpr std::array<std::uint8_t, 2> kWarm{0x80, 0x02};

bool IsTemperature(unsigned address) {
  return address == kTemperatureCode || address == kTemperatureCode + 1;
}

bool IsReadOnly(unsigned address) {
  return IsTemperature(address) || address == kIdentification || address == kIdentification + 1;
}

}  // namespace

SonySensor::SonySensor(BoardMemory& memory, const SonySensorModel& model)
    : model_(model), state_(memory) {
  const auto chip = state_.Lock();
  if (chip->powered) return;  // by another process
  chip->powered = true;
  chip->temperature = kWarm;
  chip->PowerUp(model_.power_up);
}

bool SonySensor::Acknowledges(std::uint8_t address) const {
  return Present() && address == model_.i2c_address;
}

bool SonySensor::Message(const I2cMessage& message) {
  const auto chip = state_.Lock();
  if (message.read) {
    for (std::uint8_t& byte : message.bytes) byte = chip->values[chip->pointer++];
    return true;
  }
  // Without both address bytes, the message selects no register.
  if (message.bytes.size() < 2) return true;
  chip->pointer = static_cast<std::uint16_t>(message.bytes[0] << 8 | message.bytes[1]);
  for (const std::uint8_t byte : message.bytes.subspan(2)) {
    chip->WriteRegister(chip->pointer++, byte);
  }
  return true;
}

void SonySensor::Registers::WriteRegister(std::uint16_t address, std::uint8_t value) {
  if (IsReadOnly(address)) return;
  values[address] = value;
  if (address == kTemperatureLatch && (value & kLatchBit) != 0) {
    values[kTemperatureCode] = temperature[0];
    values[kTemperatureCode + 1] = temperature[1];
  }
}

int SonySensor::Peek(unsigned address) const {
  if (address >= kAddressSpace) return -1;
  const auto chip = state_.Lock();
  return chip->values[address];
}

bool SonySensor::Poke(unsigned address, unsigned value) {
  if (address >= kAddressSpace) return false;
  const auto chip = state_.Lock();
  chip->values[address] = static_cast<std::uint8_t>(value);
  if (IsTemperature(address)) {
    chip->temperature[address - kTemperatureCode] = static_cast<std::uint8_t>(value);
  }
  return true;
}

unsigned SonySensor::Registers::Pair(std::uint16_t low_address, unsigned mask) const {
  return (values[low_address] | static_cast<unsigned>(values[low_address + 1]) << 8) & mask;
}

SensorState SonySensor::State() const {
  const auto chip = state_.Lock();
  const ReadoutSteps steps = model_.steps(chip->values[kReadoutMode]);
  const std::uint8_t crop = chip->values[kCropEnable];
  const std::uint8_t flip = chip->values[kFlip];
  SensorState state{};
  state.streaming = (chip->values[kStandby] & kStandbyBit) == 0;
  state.full_width = model_.full_width;
  state.full_height = model_.full_height;
  // Crop registers count output pixels, so with subsampling each spans two.
  state.crop_x = (crop & kCropXBit) != 0 ? chip->Pair(kCropX, kCropXMask) * steps.columns : 0;
  state.crop_y = (crop & kCropYBit) != 0 ? chip->Pair(kCropY, kCropYMask) * steps.rows : 0;
  state.column_step = steps.columns;
  state.row_step = steps.rows;
  state.flip_horizontal = (flip & kFlipHorizontalBit) != 0;
  state.flip_vertical = (flip & kFlipVerticalBit) != 0;
  state.gain = std::pow(10.0, chip->Pair(kGain, kGainMask) / 200.0);
  state.line_time_us = chip->Pair(kLineClocks, kLineClocksMask) / kLineClockMHz;
  state.exposure_unit_us = state.line_time_us;
  state.frame_lines = chip->Pair(kFrameLines, kFrameLinesMask);
  return state;
}

void SonySensor::Reset() { state_.Lock()->PowerUp(model_.power_up); }

void SonySensor::Registers::PowerUp(std::span<const SensorRegisterValue> power_up) {
  values.fill(0);
  for (const auto& [address, value] : power_up) values[address] = value;
  pointer = 0;
}

}  // namespace board
