#include "Devices/sensor/gmax2509/GMAX2509SpiInterface.h"

#include <array>
#include <cstdint>

#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kPauseAfterAccess = 10;  // microseconds

using Frame = std::array<std::uint8_t, 3>;

// Bit 23 is the direction, 22 to 15 the address, 14 to 7 the data of a write.
constexpr std::uint32_t kWriteFlag = 1u << 23;
constexpr unsigned int kAddressShift = 15;
constexpr unsigned int kWrittenShift = 7;
// The chip needs one clock to turn the line around: what it answers comes a bit later.
constexpr unsigned int kReadShift = 6;

constexpr Frame ToBytes(std::uint32_t bits) {
  return {static_cast<std::uint8_t>(bits >> 16), static_cast<std::uint8_t>(bits >> 8),
          static_cast<std::uint8_t>(bits)};
}

}  // namespace

bool GMAX2509SpiInterface::Write(unsigned char addr, unsigned char value) {
  Frame tx = ToBytes(kWriteFlag | std::uint32_t{addr} << kAddressShift |
                     std::uint32_t{value} << kWrittenShift);
  Access([&] { DoWrite(tx.data(), tx.size()); });
  Pause(kPauseAfterAccess);
  return true;
}

unsigned char GMAX2509SpiInterface::Read(unsigned char addr) {
  Frame tx = ToBytes(std::uint32_t{addr} << kAddressShift);
  Frame rx{};
  Access([&] { DoMsg(tx.data(), rx.data(), tx.size()); });
  Pause(kPauseAfterAccess);
  return static_cast<std::uint8_t>((rx[1] << 8 | rx[2]) >> kReadShift);
}

}  // namespace VeltranoSDK
