#include "chips/Ad5175.h"

namespace board {
namespace {

constexpr std::uint8_t kAddress = 0x2F;
constexpr std::uint16_t kDataMask = 0x3FF;
constexpr std::uint16_t kMidScale = 512;

// The command in bits 13..10 of a frame.
enum Command : unsigned {
  kWriteWiper = 1,
  kReadWiper = 2,
  kSoftwareReset = 4,
  kWriteControl = 7,
  kReadControl = 8,
};

constexpr std::uint16_t kControlMask = 0x7;  // bit 3 is a status bit
constexpr std::uint16_t kWiperWritable = 0x2;

enum Register : unsigned { kWiper, kControl };

}  // namespace

Ad5175::Ad5175(BoardMemory& memory)
    : state_(memory), wiper_(memory.Keep("potentiometer.bin", kMidScale)) {}

bool Ad5175::Acknowledges(std::uint8_t address) const { return Present() && address == kAddress; }

bool Ad5175::Message(const I2cMessage& message) {
  const auto chip = state_.Lock();
  const auto bytes = message.bytes;
  if (message.read) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(i % 2 == 0 ? chip->read_back >> 8 : chip->read_back);
    }
    return true;
  }
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    Execute(static_cast<std::uint16_t>(bytes[i] << 8 | bytes[i + 1]), *chip);
  }
  return true;
}

void Ad5175::Execute(std::uint16_t frame, State& chip) {
  const auto data = static_cast<std::uint16_t>(frame & kDataMask);
  switch (frame >> 10 & 0xFu) {
    case kWriteWiper:
      if ((chip.control & kWiperWritable) != 0) wiper_ = data;
      break;
    case kReadWiper:
      chip.read_back = wiper_;
      break;
    case kSoftwareReset:
      wiper_ = kMidScale;
      chip.control = 0;
      break;
    case kWriteControl:
      chip.control = data & kControlMask;
      break;
    case kReadControl:
      chip.read_back = chip.control;
      break;
    default:  // no operation, or a command of the non-volatile memory
      break;
  }
}

int Ad5175::Peek(unsigned address) const {
  const auto chip = state_.Lock();
  if (address == kWiper) return wiper_;
  return address == kControl ? chip->control : -1;
}

bool Ad5175::Poke(unsigned address, unsigned value) {
  const auto chip = state_.Lock();
  if (address > kControl) return false;
  if (address == kWiper) {
    wiper_ = static_cast<std::uint16_t>(value & kDataMask);
  } else {
    chip->control = static_cast<std::uint16_t>(value & kControlMask);
  }
  return true;
}

double Ad5175::Power() const {
  const auto chip = state_.Lock();
  return wiper_ / static_cast<double>(kDataMask);
}

}  // namespace board
