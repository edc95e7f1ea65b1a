#include "devices/Memory.h"

#include <errno.h>
#include <sys/mman.h>

#include "RealCalls.h"
#include "devices/FpgaWindow.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr off_t kRamBytes = 1 << 30;

class MemoryFile : public OpenFile {
 public:
  explicit MemoryFile(Memory* memory) : memory_(memory) {}
  std::intptr_t Mmap(void* hint, std::size_t length, int protection, int flags,
                     off_t offset) override {
    return memory_->Map(hint, length, protection, flags, offset);
  }

 private:
  Memory* memory_;
};

}  // namespace

Memory::Memory(BoardMemory& memory, std::shared_ptr<FpgaModel> fpga, fpga::RegionBases bases)
    : fpga_(std::move(fpga)), bases_(bases), ram_(memory.NewPages("board-ram", kRamBytes)) {}

OpenResult Memory::Open(const std::string&, int) { return {std::make_shared<MemoryFile>(this), 0}; }

std::intptr_t Memory::Map(void* hint, std::size_t length, int protection, int flags, off_t offset) {
  for (std::size_t i = 0; i < fpga::kBlockCount; ++i) {
    const auto block = static_cast<fpga::Block>(i);
    if (offset == static_cast<off_t>(fpga::BaseAddress(block, bases_))) {
      return OpenFpgaWindow(fpga_.get(), block, length);
    }
  }
  const bool in_ram =
      offset >= 0 && offset < kRamBytes && length <= static_cast<std::size_t>(kRamBytes - offset);
  if (!in_ram || ram_.file < 0) return -EINVAL;
  void* address = real::Mmap(hint, length, protection, flags, ram_.file, ram_.offset + offset);
  return address == MAP_FAILED ? -errno : reinterpret_cast<std::intptr_t>(address);
}

}  // namespace board
