#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSIInterface.h"

#include <array>
#include <cstdint>

#include "Devices/bus/Bytes.h"

namespace VeltranoSDK {

namespace {

using Frame = std::array<std::uint8_t, 3>;

constexpr unsigned int kWriteFlag = 0x8000;

constexpr Frame WriteFrame(unsigned short addr, unsigned char value) {
  return {HighByte(addr | kWriteFlag), LowByte(addr), value};
}

}  // namespace

unsigned char GSPRINT6502BSIInterface::Read(const unsigned short& addr) {
  Frame tx{HighByte(addr & ~kWriteFlag), LowByte(addr), 0};
  Frame rx{};
  bus_.Access([&](auto& device) { device.DoMsg(tx.data(), rx.data(), tx.size()); });
  return rx[2];
}

bool GSPRINT6502BSIInterface::Write(const unsigned short& addr, const unsigned char& value) {
  Frame tx = WriteFrame(addr, value);
  bus_.Access([&](auto& device) { device.DoWrite(tx.data(), tx.size()); });
  return true;
}

bool GSPRINT6502BSIInterface::BatchWrite(
    const std::vector<std::pair<unsigned short, unsigned char>>& list) {
  bus_.Access([&](auto& device) {
    for (const auto& [addr, value] : list) {
      Frame tx = WriteFrame(addr, value);
      device.DoWrite(tx.data(), tx.size());
    }
  });
  return true;
}

bool GSPRINT6502BSIInterface::BatchWrite(const unsigned short& start,
                                         const std::vector<unsigned char>& data) {
  std::vector<std::uint8_t> tx;
  tx.reserve(data.size() + 2);
  tx.push_back(HighByte(start | kWriteFlag));
  tx.push_back(LowByte(start));
  tx.insert(tx.end(), data.begin(), data.end());
  bus_.Access(
      [&](auto& device) { device.DoWrite(tx.data(), static_cast<std::uint32_t>(tx.size())); });
  return true;
}

}  // namespace VeltranoSDK
