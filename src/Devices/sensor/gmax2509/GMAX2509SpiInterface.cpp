#include "Devices/sensor/gmax2509/GMAX2509SpiInterface.h"

#include <array>
#include <cstdint>

#include "Devices/bus/Bytes.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr unsigned int kPauseAfterAccess = 10;  // microseconds

using Frame = std::array<std::uint8_t, 3>;

// Bit 23 is the direction, bits 22 to 15 the address, bits 14 to 7 the data of a write.
constexpr std::uint32_t kWriteFlag = 1u << 23;
constexpr unsigned int kAddressShift = 15;
constexpr unsigned int kWrittenShift = 7;
// The chip needs one clock to turn the line around, so its answer comes one bit later.
constexpr unsigned int kReadShift = 6;

constexpr Frame ToBytes(std::uint32_t bits) {
  return {LowByte(bits >> 16), HighByte(bits), LowByte(bits)};
}

}  // namespace

bool GMAX2509SpiInterface::Write(unsigned char addr, unsigned char value) {
  Frame tx = ToBytes(kWriteFlag | std::uint32_t{addr} << kAddressShift |
                     std::uint32_t{value} << kWrittenShift);
  bus_.Access([&](auto& device) { device.DoWrite(tx.data(), tx.size()); });
  Pause(kPauseAfterAccess);
  return true;
}

unsigned char GMAX2509SpiInterface::Read(unsigned char addr) {
  Frame tx = ToBytes(std::uint32_t{addr} << kAddressShift);
  Frame rx{};
  bus_.Access([&](auto& device) { device.DoMsg(tx.data(), rx.data(), tx.size()); });
  Pause(kPauseAfterAccess);
  return LowByte(WordOf(rx[1], rx[2]) >> kReadShift);
}

}  // namespace VeltranoSDK
