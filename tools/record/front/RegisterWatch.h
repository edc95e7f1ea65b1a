#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "tessaline/products.h"

namespace tool {

// Learns the FPGA's registers from the library's accesses. Each of them maps a register block, uses
// one word and unmaps the block again, so just before that the block can be looked at: its known
// registers are compared with what they were. All accesses are seen, also those that a signal
// handler makes, and nobody waits.
class RegisterWatch {
 public:
  using Changed = void (*)(std::uint64_t address, std::uint32_t value);

  // Watches the product's blocks. Call once; `changed` runs on the thread that made the access.
  void Watch(const VeltranoSDK::products::Product& product, Changed changed);

  // Memory has been mapped, and is about to be unmapped, by this thread.
  void Mapped(void* page, std::size_t length, int flags, off_t offset);
  void Unmapping(void* page);

 private:
  static constexpr std::size_t kRegisters = VeltranoSDK::fpga::kAllRegisters.size();

  std::atomic<Changed> changed_{nullptr};
  VeltranoSDK::fpga::RegionBases bases_{};
  // What was seen last, plus a bit beyond the value when it has been seen at all.
  std::array<std::atomic<std::uint64_t>, kRegisters> seen_{};
};

}  // namespace tool
