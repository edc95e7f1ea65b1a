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

bool Ad5175::Acknowledges(std::uint8_t address) const { return Present() && address == kAddress; }

bool Ad5175::Message(const I2cMessage& message) {
  const std::lock_guard lock(mutex_);
  const auto bytes = message.bytes;
  if (message.read) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(i % 2 == 0 ? read_back_ >> 8 : read_back_);
    }
    return true;
  }
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    Execute(static_cast<std::uint16_t>(bytes[i] << 8 | bytes[i + 1]));
  }
  return true;
}

void Ad5175::Execute(std::uint16_t frame) {
  const auto data = static_cast<std::uint16_t>(frame & kDataMask);
  switch (frame >> 10 & 0xFu) {
    case kWriteWiper:
      if ((control_ & kWiperWritable) != 0) wiper_ = data;
      break;
    case kReadWiper:
      read_back_ = wiper_;
      break;
    case kSoftwareReset:
      wiper_ = kMidScale;
      control_ = 0;
      break;
    case kWriteControl:
      control_ = data & kControlMask;
      break;
    case kReadControl:
      read_back_ = control_;
      break;
    default:  // no operation, or a command of the non-volatile memory
      break;
  }
}

int Ad5175::Peek(unsigned address) const {
  const std::lock_guard lock(mutex_);
  if (address == kWiper) return wiper_;
  return address == kControl ? control_ : -1;
}

bool Ad5175::Poke(unsigned address, unsigned value) {
  const std::lock_guard lock(mutex_);
  if (address > kControl) return false;
  if (address == kWiper) {
    wiper_ = static_cast<std::uint16_t>(value & kDataMask);
  } else {
    control_ = static_cast<std::uint16_t>(value & kControlMask);
  }
  return true;
}

double Ad5175::Power() const {
  const std::lock_guard lock(mutex_);
  return wiper_ / static_cast<double>(kDataMask);
}

}  // namespace board
