#include "chips/E2vFlash4k.h"

#include <array>

namespace board {
namespace {

constexpr unsigned kWidth = 4096;
constexpr unsigned kHeight = 1080;

// The first byte on the wire.
enum Command : std::uint8_t {
  kRead = 0x02,
  kWrite = 0x42,
  kSelectPage = 0x60,
  kUpdateRegisters = 0x81,
  kUpdateArea = 0x82,
  kStop = 0x88,
  kStart = 0x90,
  kConfigureSlices = 0xBB,
};
constexpr std::size_t kAddressEnd = 3;  // of command and address
constexpr std::size_t kReadDataAt = 4;  // after one byte in which the chip fetches the data
constexpr std::size_t kSliceCommandBytes = 5;

constexpr unsigned kPageStep = 0x10000;
constexpr unsigned kPages = 0x100;

// Page 0.
constexpr unsigned kStatus = 0x0000;
constexpr unsigned kIdentificationHigh = 0x0001;
constexpr unsigned kIdentificationLow = 0x0002;
constexpr unsigned kPllEnable = 0x0008;
constexpr unsigned kLineLength = 0x0021;
constexpr unsigned kRowOrder = 0x0023;
constexpr unsigned kAreaY = 0x0024;
constexpr unsigned kAreaHeight = 0x0025;
constexpr unsigned kReducedReadout = 0x0031;
constexpr unsigned kAreaX = 0x0034;
constexpr unsigned kAreaWidth = 0x0035;
constexpr unsigned kSliceEnable = 0x0063;
constexpr unsigned kOutputEnable = 0x012F;

// Bits of the status.
constexpr unsigned kAreaUpdateBusy = 0x01;
constexpr unsigned kRegisterUpdateBusy = 0x10;
constexpr unsigned kPllsLocked = 0x60;
constexpr unsigned kSlicesReady = 0x80;

constexpr unsigned kBothPlls = 0x03;
constexpr unsigned kSliceBit = 0x01;
constexpr unsigned kOutputBit = 0x01;
constexpr unsigned kReducedBit = 0x01;
constexpr unsigned kFlipVerticalBit = 0x04;

constexpr unsigned kColumnUnit = 64;
constexpr unsigned kRowUnit = 8;

// Number of status reads that still return "not ready".
constexpr unsigned kLockLooks = 3;
constexpr unsigned kSliceLooks = 2;
constexpr unsigned kUpdateLooks = 2;

// A clock of 15 MHz. Sixteen outputs share a line; the register holds its length minus one.
constexpr double kExposureUnitUs = 1.0 / 15;
constexpr double kLineClocksPerUs = 15 * 16;
constexpr unsigned kFrameOverheadLines = 16;

struct PowerUpValue {
  unsigned address;
  std::uint16_t value;
};
constexpr std::array kPowerUp{
    PowerUpValue{kIdentificationHigh, 0x2030},
    PowerUpValue{kIdentificationLow, 0x25F9},
    PowerUpValue{kLineLength, 383},
    PowerUpValue{kAreaHeight, kHeight / kRowUnit - 1},
    PowerUpValue{kAreaWidth, kWidth / kColumnUnit - 1},
};

bool IsReadOnly(unsigned address) {
  return address == kStatus || address == kIdentificationHigh || address == kIdentificationLow;
}

unsigned BigEndian(std::span<const std::uint8_t> bytes) { return bytes[0] << 8 | bytes[1]; }

}  // namespace

void E2vFlash4k::Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
  state_.Lock()->Transfer(in, out);
}

void E2vFlash4k::Registers::Transfer(std::span<const std::uint8_t> in,
                                     std::span<std::uint8_t> out) {
  if (in.empty()) return;
  switch (in[0]) {
    case kRead:
      return Read(in, out);
    case kWrite:
      return Write(in);
    case kSelectPage:
      if (in.size() > 1) page = in[1];
      return;
    case kUpdateRegisters:
      return register_update.Begin(kUpdateLooks);
    case kUpdateArea:
      UpdateArea();
      return area_update.Begin(kUpdateLooks);
    case kStop:
      stopped = true;
      return;
    case kStart:
      stopped = false;
      return;
    case kConfigureSlices:
      slices_addressed = slices_addressed || in.size() == kSliceCommandBytes;
      return;
    default:
      return;
  }
}

// Addresses increment within a transfer.
void E2vFlash4k::Registers::Read(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
  if (in.size() < kAddressEnd) return;
  unsigned address = BigEndian(in.subspan(1));
  for (std::size_t i = kReadDataAt; i + 1 < in.size(); i += 2, ++address) {
    const unsigned value = ReadRegister(page * kPageStep + address % kPageStep);
    out[i] = static_cast<std::uint8_t>(value >> 8);
    out[i + 1] = static_cast<std::uint8_t>(value);
  }
}

void E2vFlash4k::Registers::Write(std::span<const std::uint8_t> in) {
  if (in.size() < kAddressEnd) return;
  unsigned address = BigEndian(in.subspan(1));
  for (std::size_t i = kAddressEnd; i + 1 < in.size(); i += 2, ++address) {
    WriteRegister(page * kPageStep + address % kPageStep,
                  static_cast<std::uint16_t>(BigEndian(in.subspan(i))));
  }
}

unsigned E2vFlash4k::Registers::ReadRegister(unsigned address) {
  if (address != kStatus) return Register(address);
  for (Settling* condition : {&pll, &slices, &register_update, &area_update}) {
    condition->Look();
  }
  return Status();
}

unsigned E2vFlash4k::Registers::Status() const {
  if (held_status) return *held_status;
  return (area_update.Pending() ? kAreaUpdateBusy : 0) |
         (register_update.Pending() ? kRegisterUpdateBusy : 0) | (pll.Settled() ? kPllsLocked : 0) |
         (slices.Settled() ? kSlicesReady : 0);
}

// Only a bit that changes from 0 to 1 starts something. Writing 1 again has no effect.
void E2vFlash4k::Registers::WriteRegister(unsigned address, std::uint16_t value) {
  if (IsReadOnly(address)) return;
  const unsigned before = Register(address);
  values.Set(address, value);
  if (address == kPllEnable) {
    const bool on = (value & kBothPlls) == kBothPlls;
    if (!on) pll.Cancel();
    if (on && (before & kBothPlls) != kBothPlls) pll.Begin(kLockLooks);
  } else if (address == kSliceEnable) {
    const bool on = (value & kSliceBit) != 0;
    if (!on) slices.Cancel();
    // Slices without an address or a clock never come up.
    if (on && (before & kSliceBit) == 0 && slices_addressed && pll.Settled()) {
      slices.Begin(kSliceLooks);
    }
  }
}

void E2vFlash4k::Registers::UpdateArea() {
  area_x = Register(kAreaX) * kColumnUnit;
  area_y = Register(kAreaY) * kRowUnit;
  area_height = (Register(kAreaHeight) + 1) * kRowUnit;
}

int E2vFlash4k::Peek(unsigned address) const {
  if (address >= kPages * kPageStep) return -1;
  const auto chip = state_.Lock();
  return static_cast<int>(address == kStatus ? chip->Status() : chip->Register(address));
}

bool E2vFlash4k::Poke(unsigned address, unsigned value) {
  if (address >= kPages * kPageStep) return false;
  const auto chip = state_.Lock();
  const auto word = static_cast<std::uint16_t>(value);
  if (address == kStatus) {
    chip->held_status = value < kOwnStatus ? std::optional(word) : std::nullopt;
  } else if (IsReadOnly(address)) {
    chip->values.Set(address, word);
  } else {
    chip->WriteRegister(address, word);
  }
  return true;
}

SensorState E2vFlash4k::State() const {
  const auto chip = state_.Lock();
  const unsigned step = (chip->Register(kReducedReadout) & kReducedBit) != 0 ? 2 : 1;
  SensorState state{};
  state.streaming = chip->pll.Settled() && chip->slices.Settled() &&
                    (chip->Register(kOutputEnable) & kOutputBit) != 0 && !chip->stopped;
  state.full_width = kWidth;
  state.full_height = kHeight;
  state.crop_x = chip->area_x * step;
  state.crop_y = chip->area_y * step;
  state.column_step = step;
  state.row_step = step;
  state.flip_vertical = (chip->Register(kRowOrder) & kFlipVerticalBit) != 0;
  state.gain = 1;
  state.exposure_unit_us = kExposureUnitUs;
  state.line_time_us = (chip->Register(kLineLength) + 1) / kLineClocksPerUs;
  state.frame_lines = chip->area_height + kFrameOverheadLines;
  return state;
}

void E2vFlash4k::Reset() { state_.Lock()->PowerUp(); }

void E2vFlash4k::Registers::PowerUp() {
  values.Clear();
  for (const auto& [address, value] : kPowerUp) values.Set(address, value);
  page = 0;
  slices_addressed = false;
  stopped = false;
  for (Settling* condition : {&pll, &slices, &register_update, &area_update}) {
    condition->Cancel();
  }
  UpdateArea();
}

}  // namespace board
