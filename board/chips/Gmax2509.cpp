#include "chips/Gmax2509.h"

#include <algorithm>
#include <span>

#include "chips/SensorRegisterValue.h"

namespace board {
namespace {

constexpr unsigned kColumns = 4200;
constexpr std::size_t kFrameBytes = 3;

constexpr std::uint8_t kControl = 0x00;
constexpr std::uint8_t kReadout = 0x01;
constexpr std::uint8_t kRowSubsampling = 0x12;
constexpr std::uint8_t kFirstRow = 0x13;
constexpr std::uint8_t kRowCount = 0x15;
constexpr std::uint8_t kLineTime = 0xA0;
constexpr std::uint8_t kGain = 0xB5;
constexpr std::uint8_t kTemperature = 0xC0;
constexpr std::uint8_t kProgramming = 0xD0;
constexpr std::uint8_t kRowOrder = 0xDE;

constexpr std::uint8_t kStreamBit = 0x02;
constexpr std::uint8_t kFlipHorizontalBit = 0x10;
constexpr std::uint8_t kGainBits = 0x3F;
constexpr std::uint8_t kProgrammingBit = 0x40;
constexpr std::uint8_t kRowsForwardBit = 0x40;

// Dark rows before the picture. This many are before its first row, and more are before the first
// row of a flipped readout.
constexpr unsigned kDarkRows = 4;
constexpr unsigned kDarkRowsFlipped = 24;

constexpr unsigned kMaxGain = 5;
constexpr unsigned kFrameOverheadLines = 21;
constexpr double kLineClockMHz = 96;
constexpr double kExposureClocks = 152;

constexpr std::array kPowerUp{
    SensorRegisterValue{kFirstRow, kDarkRows},
    SensorRegisterValue{kRowCount, Gmax2509::kArrayRows & 0xFF},
    SensorRegisterValue{kRowCount + 1, Gmax2509::kArrayRows >> 8},
    SensorRegisterValue{kLineTime, static_cast<std::uint8_t>(kExposureClocks)},
    SensorRegisterValue{kGain, 0x41},
    SensorRegisterValue{kRowOrder, kRowsForwardBit},
};

constexpr std::array<std::uint8_t, 2> kWarm{0x00, 0x0C};

bool IsTemperature(unsigned address) {
  return address == kTemperature || address == kTemperature + 1;
}

// The frame in wire order: direction, eight address bits, data.
struct Frame {
  explicit Frame(std::span<const std::uint8_t> in)
      : writes((in[0] & 0x80) != 0),
        address(static_cast<std::uint8_t>(in[0] << 1 | in[1] >> 7)),
        value(static_cast<std::uint8_t>(in[1] << 1 | in[2] >> 7)) {}

  // The chip needs one clock to change direction, so its data start one bit later.
  static void Answer(std::uint8_t value, std::span<std::uint8_t> out) {
    out[1] = value >> 2;
    out[2] = static_cast<std::uint8_t>(value << 6);
  }

  bool writes;
  std::uint8_t address;
  std::uint8_t value;
};

}  // namespace

Gmax2509::Gmax2509(BoardMemory& memory, unsigned product_rows)
    : product_rows_(product_rows), state_(memory) {}

Gmax2509::Registers::Registers() {
  std::ranges::copy(kWarm, &values[kTemperature]);
  PowerUp();
}

void Gmax2509::Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
  // A short frame has no effect. Neither do bytes after a complete frame.
  if (in.size() < kFrameBytes) return;
  const Frame frame(in);
  const auto chip = state_.Lock();
  if (!frame.writes) {
    Frame::Answer(chip->values[frame.address], out);
  } else if (!IsTemperature(frame.address)) {
    chip->values[frame.address] = frame.value;
  }
}

int Gmax2509::Peek(unsigned address) const {
  if (address >= kAddressSpace) return -1;
  const auto chip = state_.Lock();
  return chip->values[address];
}

bool Gmax2509::Poke(unsigned address, unsigned value) {
  if (address >= kAddressSpace) return false;
  const auto chip = state_.Lock();
  chip->values[address] = static_cast<std::uint8_t>(value);
  return true;
}

unsigned Gmax2509::Registers::Pair(std::uint8_t low_address) const {
  return values[low_address] | static_cast<unsigned>(values[low_address + 1]) << 8;
}

// First row of the picture, in rows of the array. A flipped readout that is set to start in the
// dark rows starts at the picture.
unsigned Gmax2509::Registers::FirstRow() const {
  const bool flipped = (values[kRowOrder] & kRowsForwardBit) == 0;
  const unsigned first = Pair(kFirstRow);
  return first <= (flipped ? kDarkRowsFlipped : kDarkRows) ? 0 : first - kDarkRows;
}

SensorState Gmax2509::State() const {
  const auto chip = state_.Lock();
  const unsigned pitch = kArrayRows / product_rows_;
  const unsigned row_step = (chip->values[kRowSubsampling] & 1) != 0 ? 2 : 1;
  SensorState state{};
  state.streaming = (chip->values[kControl] & kStreamBit) != 0 &&
                    (chip->values[kProgramming] & kProgrammingBit) == 0;
  state.full_width = kColumns;
  state.full_height = product_rows_;
  state.crop_y = chip->FirstRow() / pitch;
  state.column_step = 1;
  state.row_step = std::max(1u, row_step / pitch);
  state.flip_horizontal = (chip->values[kReadout] & kFlipHorizontalBit) != 0;
  state.flip_vertical = (chip->values[kRowOrder] & kRowsForwardBit) == 0;
  state.gain = std::clamp<unsigned>(chip->values[kGain] & kGainBits, 1, kMaxGain);
  state.exposure_unit_us = kExposureClocks / kLineClockMHz;
  state.line_time_us = chip->Pair(kLineTime) / kLineClockMHz;
  state.frame_lines = chip->Pair(kRowCount) + kFrameOverheadLines;
  state.fpga = {.block_pixels = 28, .block_units = 32, .crops = true, .halves = true};
  return state;
}

void Gmax2509::Reset() { state_.Lock()->PowerUp(); }

// The temperature is not a setting, so it does not change.
void Gmax2509::Registers::PowerUp() {
  const std::array warmth{values[kTemperature], values[kTemperature + 1]};
  values.fill(0);
  std::ranges::copy(warmth, &values[kTemperature]);
  for (const auto& [address, value] : kPowerUp) values[address] = value;
}

}  // namespace board
