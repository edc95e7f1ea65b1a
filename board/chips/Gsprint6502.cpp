#include "chips/Gsprint6502.h"

#include <algorithm>
#include <array>

#include "chips/SensorRegisterValue.h"

namespace board {
namespace {

constexpr unsigned kWidth = 2048;
constexpr unsigned kHeight = 1152;
constexpr unsigned kAddressMask = 0x7FFF;

constexpr std::uint16_t kStream = 0x0000;
constexpr std::uint16_t kHdr = 0x0003;
constexpr std::uint16_t kLineTime = 0x0080;
constexpr std::uint16_t kGain = 0x00A0;
constexpr std::uint16_t kSubsampling = 0x0110;
constexpr std::uint16_t kRowCount = 0x0130;
constexpr std::uint16_t kFirstRow = 0x0140;
constexpr std::uint16_t kPower = 0x1C00;
constexpr std::uint16_t kSerialOutput = 0x2400;
constexpr std::uint16_t kTemperature = 0x2500;

constexpr std::uint8_t kWriteBit = 0x80;  // of the first byte on the wire
constexpr std::uint8_t kStreamBit = 0x01;
constexpr std::uint8_t kHdrBits = 0x03;
constexpr std::uint8_t kGainBits = 0x0F;
constexpr std::uint8_t kSubsamplingBit = 0x01;
constexpr std::uint8_t kPowerBit = 0x01;
constexpr std::uint8_t kSerialBit = 0x10;

constexpr unsigned kLineTimeMask = 0x3FFF;
constexpr unsigned kRowMask = 0x07FF;

constexpr unsigned kDarkRows = 4;  // before the first row of the picture
constexpr unsigned kFrameOverheadLines = 10;
constexpr double kExposureUnitUs = 17.0 / 15;
constexpr unsigned kFastLineClocks =
    72;  // at this value, a line of two rows takes one exposure unit

constexpr std::array kPowerUp{
    SensorRegisterValue{kLineTime, kFastLineClocks},
    SensorRegisterValue{kGain, 1},
    SensorRegisterValue{kRowCount, kHeight & 0xFF},
    SensorRegisterValue{kRowCount + 1, kHeight >> 8},
    SensorRegisterValue{kFirstRow, kDarkRows},
};

constexpr std::array<std::uint8_t, 2> kWarm{0x00, 0x0C};

bool IsTemperature(unsigned address) {
  return address == kTemperature || address == kTemperature + 1;
}

}  // namespace

Gsprint6502::Registers::Registers() {
  std::ranges::copy(kWarm, &values[kTemperature]);
  PowerUp();
}

void Gsprint6502::Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
  if (in.size() < 2) return;
  const bool writes = (in[0] & kWriteBit) != 0;
  unsigned address = (in[0] << 8 | in[1]) & kAddressMask;
  const auto chip = state_.Lock();
  for (std::size_t i = 2; i < in.size(); ++i, address = (address + 1) & kAddressMask) {
    if (!writes) {
      out[i] = chip->values[address];
    } else if (!IsTemperature(address)) {
      chip->values[address] = in[i];
    }
  }
}

int Gsprint6502::Peek(unsigned address) const {
  if (address >= kAddressSpace) return -1;
  const auto chip = state_.Lock();
  return chip->values[address];
}

bool Gsprint6502::Poke(unsigned address, unsigned value) {
  if (address >= kAddressSpace) return false;
  const auto chip = state_.Lock();
  chip->values[address] = static_cast<std::uint8_t>(value);
  return true;
}

unsigned Gsprint6502::Registers::Pair(std::uint16_t low_address, unsigned mask) const {
  return (values[low_address] | static_cast<unsigned>(values[low_address + 1]) << 8) & mask;
}

SensorState Gsprint6502::State() const {
  const auto chip = state_.Lock();
  const unsigned step = (chip->values[kSubsampling] & kSubsamplingBit) != 0 ? 2 : 1;
  SensorState state{};
  state.streaming = (chip->values[kStream] & kStreamBit) != 0 &&
                    (chip->values[kSerialOutput] & kSerialBit) != 0 &&
                    (chip->values[kPower] & kPowerBit) != 0;
  state.full_width = kWidth;
  state.full_height = kHeight;
  state.crop_y = std::max(chip->Pair(kFirstRow, kRowMask), kDarkRows) - kDarkRows;
  state.column_step = step;
  state.row_step = step;
  state.hdr = (chip->values[kHdr] & kHdrBits) != 0;
  state.gain = std::max(1, chip->values[kGain] & kGainBits);
  state.exposure_unit_us = kExposureUnitUs;
  state.line_time_us = chip->Pair(kLineTime, kLineTimeMask) * kExposureUnitUs / kFastLineClocks;
  // Two rows per line.
  state.frame_lines =
      (chip->Pair(kRowCount, kRowMask) / step + kDarkRows) / 2 + kFrameOverheadLines;
  state.fpga = {.block_pixels = 32, .block_units = 32, .crops = true};
  return state;
}

void Gsprint6502::Reset() { state_.Lock()->PowerUp(); }

// The temperature is not a setting, so it does not change.
void Gsprint6502::Registers::PowerUp() {
  const std::array warmth{values[kTemperature], values[kTemperature + 1]};
  std::ranges::fill(values, 0);
  std::ranges::copy(warmth, &values[kTemperature]);
  for (const auto& [address, value] : kPowerUp) values[address] = value;
}

}  // namespace board
