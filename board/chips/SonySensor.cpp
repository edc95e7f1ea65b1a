#include "chips/SonySensor.h"

#include <cmath>
#include <cstddef>

namespace board {
namespace {

constexpr std::size_t kAddressSpace = 0x10000;

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

SonySensor::SonySensor(const SonySensorModel& model)
    : model_(model), registers_(kAddressSpace), temperature_(kWarm) {
  PowerUp();
}

bool SonySensor::Acknowledges(std::uint8_t address) const {
  return Present() && address == model_.i2c_address;
}

bool SonySensor::Message(const I2cMessage& message) {
  const std::lock_guard lock(mutex_);
  if (message.read) {
    for (std::uint8_t& byte : message.bytes) byte = registers_[pointer_++];
    return true;
  }
  // Without both address bytes, the message selects no register.
  if (message.bytes.size() < 2) return true;
  pointer_ = static_cast<std::uint16_t>(message.bytes[0] << 8 | message.bytes[1]);
  for (const std::uint8_t byte : message.bytes.subspan(2)) WriteRegister(pointer_++, byte);
  return true;
}

void SonySensor::WriteRegister(std::uint16_t address, std::uint8_t value) {
  if (IsReadOnly(address)) return;
  registers_[address] = value;
  if (address == kTemperatureLatch && (value & kLatchBit) != 0) {
    registers_[kTemperatureCode] = temperature_[0];
    registers_[kTemperatureCode + 1] = temperature_[1];
  }
}

int SonySensor::Peek(unsigned address) const {
  if (address >= kAddressSpace) return -1;
  const std::lock_guard lock(mutex_);
  return registers_[address];
}

bool SonySensor::Poke(unsigned address, unsigned value) {
  if (address >= kAddressSpace) return false;
  const std::lock_guard lock(mutex_);
  registers_[address] = static_cast<std::uint8_t>(value);
  if (IsTemperature(address)) {
    temperature_[address - kTemperatureCode] = static_cast<std::uint8_t>(value);
  }
  return true;
}

unsigned SonySensor::Pair(std::uint16_t low_address, unsigned mask) const {
  return (registers_[low_address] | static_cast<unsigned>(registers_[low_address + 1]) << 8) & mask;
}

SensorState SonySensor::State() const {
  const std::lock_guard lock(mutex_);
  const ReadoutSteps steps = model_.steps(registers_[kReadoutMode]);
  const std::uint8_t crop = registers_[kCropEnable];
  const std::uint8_t flip = registers_[kFlip];
  SensorState state{};
  state.streaming = (registers_[kStandby] & kStandbyBit) == 0;
  state.full_width = model_.full_width;
  state.full_height = model_.full_height;
  // Crop registers count output pixels, so with subsampling each spans two.
  state.crop_x = (crop & kCropXBit) != 0 ? Pair(kCropX, kCropXMask) * steps.columns : 0;
  state.crop_y = (crop & kCropYBit) != 0 ? Pair(kCropY, kCropYMask) * steps.rows : 0;
  state.column_step = steps.columns;
  state.row_step = steps.rows;
  state.flip_horizontal = (flip & kFlipHorizontalBit) != 0;
  state.flip_vertical = (flip & kFlipVerticalBit) != 0;
  state.gain = std::pow(10.0, Pair(kGain, kGainMask) / 200.0);
  state.line_time_us = Pair(kLineClocks, kLineClocksMask) / kLineClockMHz;
  state.exposure_unit_us = state.line_time_us;
  state.frame_lines = Pair(kFrameLines, kFrameLinesMask);
  return state;
}

void SonySensor::Reset() {
  const std::lock_guard lock(mutex_);
  PowerUp();
}

void SonySensor::PowerUp() {
  registers_.assign(kAddressSpace, 0);
  for (const auto& [address, value] : model_.power_up) registers_[address] = value;
  pointer_ = 0;
}

}  // namespace board
