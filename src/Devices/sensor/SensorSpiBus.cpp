#include "Devices/sensor/SensorSpiBus.h"

#include <cstdint>
#include <string>

namespace VeltranoSDK {

namespace {

constexpr char kDevice[] = "/dev/spidev1.0";
constexpr std::uint8_t kBitsPerWord = 8;
constexpr std::uint32_t kSpeedHz = 10'000'000;

}  // namespace

void SensorSpiBus::Access(const std::function<void(DevFOps::SpiDev&)>& transfer) {
  if (!device_.Open(kDevice)) return;
  if (device_.SetOpt(DevFOps::SpiDev::kMode0, false, kBitsPerWord, kSpeedHz)) transfer(device_);
  device_.Close();
}

}  // namespace VeltranoSDK
