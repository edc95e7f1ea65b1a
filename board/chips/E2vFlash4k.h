#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

#include "chips/ImageSensorChip.h"
#include "chips/Settling.h"
#include "chips/SpiChip.h"

namespace board {

// e2v Flash 4K, 4096 x 1080 pixels: 16-bit registers at 16-bit addresses in pages, and separate
// commands for start, stop and updates.
class E2vFlash4k : public SpiChip, public ImageSensorChip {
 public:
  // Writing this to the status register makes the chip's own status visible again.
  static constexpr unsigned kOwnStatus = 0x10000;

  E2vFlash4k();

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  // Addresses: page x 0x10000 + register. A status (register 0 of page 0) that is set here stays
  // until kOwnStatus is set, whatever the chip does.
  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  void PowerUp();
  unsigned Register(unsigned address) const;
  void WriteRegister(unsigned address, std::uint16_t value);
  // Returns what software reads, and does what the read triggers.
  unsigned ReadRegister(unsigned address);
  void Write(std::span<const std::uint8_t> in);
  void Read(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);
  unsigned Status() const;
  void UpdateArea();

  mutable std::mutex mutex_;
  std::map<unsigned, std::uint16_t> registers_;  // by page x 0x10000 + address
  unsigned page_ = 0;
  bool slices_addressed_ = false;
  bool stopped_ = false;
  unsigned area_x_ = 0, area_y_ = 0;  // as of the last area update, in output pixels
  unsigned area_height_ = 0;
  Settling pll_, slices_, register_update_, area_update_;
  std::optional<std::uint16_t> held_status_;
};

}  // namespace board
