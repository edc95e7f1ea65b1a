#pragma once

#include <cstdint>
#include <string>

namespace VeltranoSDK::DevFOps {

// A spidev device, open from Open to Close.
class SpiDev {
 public:
  // Clock polarity (bit 1) and phase (bit 0).
  enum SpiMode : std::uint8_t { kMode0 = 0, kMode1 = 1, kMode2 = 2, kMode3 = 3 };

  SpiDev() = default;
  ~SpiDev();
  SpiDev(const SpiDev&) = delete;
  SpiDev& operator=(const SpiDev&) = delete;

  bool Open(const std::string& name);
  bool Close();

  // Sets each option and reads it back. Stops at the first one refused; those before it stay in
  // effect.
  bool SetOpt(SpiMode mode, bool lsb_first, std::uint8_t bits_per_word, std::uint32_t max_speed_hz);

  // One full-duplex transfer of `len` bytes.
  bool DoMsg(std::uint8_t* tx, std::uint8_t* rx, std::uint32_t len);
  bool DoWrite(std::uint8_t* buf, std::uint32_t len);

 private:
  int fd_ = -1;
  std::uint16_t delay_us_ = 1;
};

}  // namespace VeltranoSDK::DevFOps
