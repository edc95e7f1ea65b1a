#include "Devices/sensor/sony/ImxSensorI2cInterface.h"

#include "Devices/bus/Bytes.h"
#include "Neighbours.h"
#include "thread/Pause.h"

namespace VeltranoSDK {

namespace {

constexpr int kAttempts = 10;
constexpr unsigned int kPauseAfterAttempt = 500;  // microseconds

template <typename Access>
bool Retried(Access access) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const bool done = access();
    Pause(kPauseAfterAttempt);
    if (done) return true;
  }
  return false;
}

}  // namespace

ImxSensorI2cInterface::ImxSensorI2cInterface(unsigned char address)
    : device_(neighbour::SensorBus(), address) {}

bool ImxSensorI2cInterface::Write(unsigned short addr, unsigned char value) {
  return Retried([&] { return device_.I2cRdWr({HighByte(addr), LowByte(addr), value}); });
}

unsigned char ImxSensorI2cInterface::Read(unsigned short addr) {
  std::vector<std::uint8_t> value{0};
  Retried([&] { return device_.I2cRdWr({HighByte(addr), LowByte(addr)}, value); });
  return value.front();
}

}  // namespace VeltranoSDK
