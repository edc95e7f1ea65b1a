#include "record/front/RegisterWatch.h"

#include <sys/mman.h>

#include <algorithm>

namespace tool {
namespace {

namespace fpga = VeltranoSDK::fpga;

// The library maps this much of a block.
constexpr std::size_t kWordsMapped = 32;
constexpr std::size_t kMostMapped = fpga::kBlockBytes;
constexpr std::uint64_t kSeen = std::uint64_t{1} << 32;

// They differ at every look.
constexpr std::array kRunning{fpga::kReg.TIMER_COUNTER_L, fpga::kReg.TIMER_COUNTER_H,
                              fpga::kReg.ENCODER_COUNTER_L, fpga::kReg.ENCODER_COUNTER_H};

constexpr bool IsWatched(const fpga::Register& reg) {
  // The last one is another name of a block that is looked at anyway.
  return reg.block != fpga::Block::kRebuild6B && reg.Index() < kWordsMapped &&
         std::find(kRunning.begin(), kRunning.end(), reg) == kRunning.end();
}

struct Mapping {
  const volatile std::uint32_t* words = nullptr;
  fpga::Block block{};
};
thread_local Mapping mapping;

}  // namespace

void RegisterWatch::Watch(const VeltranoSDK::products::Product& product, Changed changed) {
  bases_ = product.family.board.processor.regions;
  changed_.store(changed, std::memory_order_release);
}

void RegisterWatch::Mapped(void* page, std::size_t length, int flags, off_t offset) {
  if (changed_.load(std::memory_order_acquire) == nullptr || page == MAP_FAILED) return;
  if ((flags & MAP_SHARED) == 0 || length < kWordsMapped * 4 || length > kMostMapped) return;
  for (std::size_t i = 0; i < fpga::kBlockCount; ++i) {
    const auto block = static_cast<fpga::Block>(i);
    if (block == fpga::Block::kRebuild6B) continue;
    if (offset != static_cast<off_t>(fpga::BaseAddress(block, bases_))) continue;
    mapping = {static_cast<const volatile std::uint32_t*>(page), block};
    return;
  }
}

void RegisterWatch::Unmapping(void* page) {
  if (mapping.words == nullptr || page != mapping.words) return;
  const Mapping now = mapping;
  mapping = {};
  const Changed changed = changed_;
  const std::uint64_t base = fpga::BaseAddress(now.block, bases_);
  for (std::size_t i = 0; i < kRegisters; ++i) {
    const fpga::Register& reg = fpga::kAllRegisters[i];
    if (reg.block != now.block || !IsWatched(reg)) continue;
    const std::uint32_t value = now.words[reg.Index()];
    if (seen_[i].exchange(value | kSeen) != (value | kSeen)) changed(base + reg.offset, value);
  }
}

}  // namespace tool
