#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSIInterface.h"

#include <array>
#include <cstdint>

namespace VeltranoSDK {

namespace {

using Frame = std::array<std::uint8_t, 3>;

constexpr std::uint8_t kWriteFlag = 0x80;

constexpr std::uint8_t High(unsigned short addr) { return static_cast<std::uint8_t>(addr >> 8); }
constexpr std::uint8_t Low(unsigned short addr) { return static_cast<std::uint8_t>(addr); }

constexpr Frame WriteFrame(unsigned short addr, unsigned char value) {
  return {static_cast<std::uint8_t>(High(addr) | kWriteFlag), Low(addr), value};
}

}  // namespace

unsigned char GSPRINT6502BSIInterface::Read(const unsigned short& addr) {
  Frame tx{static_cast<std::uint8_t>(High(addr) & ~kWriteFlag), Low(addr), 0};
  Frame rx{};
  Access([&] { DoMsg(tx.data(), rx.data(), tx.size()); });
  return rx[2];
}

bool GSPRINT6502BSIInterface::Write(const unsigned short& addr, const unsigned char& value) {
  Frame tx = WriteFrame(addr, value);
  Access([&] { DoWrite(tx.data(), tx.size()); });
  return true;
}

bool GSPRINT6502BSIInterface::BatchWrite(
    const std::vector<std::pair<unsigned short, unsigned char>>& list) {
  Access([&] {
    for (const auto& [addr, value] : list) {
      Frame tx = WriteFrame(addr, value);
      DoWrite(tx.data(), tx.size());
    }
  });
  return true;
}

bool GSPRINT6502BSIInterface::BatchWrite(const unsigned short& start,
                                         const std::vector<unsigned char>& data) {
  std::vector<std::uint8_t> tx;
  tx.reserve(data.size() + 2);
  tx.push_back(static_cast<std::uint8_t>(High(start) | kWriteFlag));
  tx.push_back(Low(start));
  tx.insert(tx.end(), data.begin(), data.end());
  Access([&] { DoWrite(tx.data(), static_cast<std::uint32_t>(tx.size())); });
  return true;
}

}  // namespace VeltranoSDK
