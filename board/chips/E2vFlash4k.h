#pragma once

#include <cstdint>
#include <optional>

#include "chips/ImageSensorChip.h"
#include "chips/Settling.h"
#include "chips/SpiChip.h"
#include "memory/FixedMap.h"
#include "memory/Shared.h"

namespace board {

// e2v Flash 4K, 4096 x 1080 pixels: 16-bit registers at 16-bit addresses in pages, and separate
// commands for start, stop and updates.
class E2vFlash4k : public SpiChip, public ImageSensorChip {
 public:
  // Writing this to the status register makes the chip's own status visible again.
  static constexpr unsigned kOwnStatus = 0x10000;

  explicit E2vFlash4k(BoardMemory& memory) : state_(memory) {}

  void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) override;

  // Addresses: page x 0x10000 + register. A status (register 0 of page 0) that is set here stays
  // until kOwnStatus is set, whatever the chip does.
  int Peek(unsigned address) const override;
  bool Poke(unsigned address, unsigned value) override;

  SensorState State() const override;
  void Reset() override;

 private:
  // All but the lock.
  struct Registers {
    Registers() { PowerUp(); }
    void PowerUp();
    void Transfer(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);
    unsigned Register(unsigned address) const { return values.Get(address); }
    void WriteRegister(unsigned address, std::uint16_t value);
    // Returns what software reads, and does what the read triggers.
    unsigned ReadRegister(unsigned address);
    void Write(std::span<const std::uint8_t> in);
    void Read(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);
    unsigned Status() const;
    void UpdateArea();

    static constexpr std::size_t kMostRegisters = 4096;
    FixedMap<unsigned, std::uint16_t, kMostRegisters> values;  // by page x 0x10000 + address
    unsigned page = 0;
    bool slices_addressed = false;
    bool stopped = false;
    unsigned area_x = 0, area_y = 0;  // as of the last area update, in output pixels
    unsigned area_height = 0;
    Settling pll, slices, register_update, area_update;
    std::optional<std::uint16_t> held_status;
  };
  Shared<Registers> state_;
};

}  // namespace board
