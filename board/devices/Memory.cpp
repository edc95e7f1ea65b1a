#include "devices/Memory.h"

#include <errno.h>
#include <sys/mman.h>

#include "RealCalls.h"
#include "devices/FilePosition.h"
#include "devices/FpgaWindow.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr off_t kRamBytes = 1 << 30;

class MemoryFile : public OpenFile {
 public:
  explicit MemoryFile(Memory* memory) : memory_(memory) {}

  ssize_t Read(void* buffer, std::size_t size) override {
    return position_.Advance(ReadAt(buffer, size, position_.Get()));
  }
  ssize_t Write(const void* buffer, std::size_t size) override {
    return position_.Advance(WriteAt(buffer, size, position_.Get()));
  }
  ssize_t ReadAt(void* buffer, std::size_t size, off_t offset) override {
    return memory_->Read(buffer, size, offset);
  }
  ssize_t WriteAt(const void* buffer, std::size_t size, off_t offset) override {
    return memory_->Write(buffer, size, offset);
  }
  off_t Seek(off_t offset, int whence) override {
    return position_.Seek(offset, whence, std::nullopt);
  }
  std::intptr_t Mmap(void* hint, std::size_t length, int protection, int flags,
                     off_t offset) override {
    return memory_->Map(hint, length, protection, flags, offset);
  }

 private:
  Memory* memory_;
  FilePosition position_;
};

}  // namespace

Memory::Memory(BoardMemory& memory, std::shared_ptr<FpgaModel> fpga, fpga::RegionBases bases)
    : fpga_(std::move(fpga)), bases_(bases), ram_(memory.NewPages("board-ram", kRamBytes)) {}

Memory::~Memory() { LoseFpga(fpga_.get()); }

OpenResult Memory::Open(const std::string&, int) { return {std::make_shared<MemoryFile>(this), 0}; }

bool Memory::InRam(off_t offset, std::size_t length) const {
  return ram_.file >= 0 && offset >= 0 && offset < kRamBytes &&
         length <= static_cast<std::size_t>(kRamBytes - offset);
}

// The kernel reads and writes RAM only; registers are reached by mapping them.
ssize_t Memory::Read(void* buffer, std::size_t size, off_t offset) const {
  if (!InRam(offset, size)) return -EFAULT;
  const ssize_t done = real::Pread(ram_.file, buffer, size, ram_.offset + offset);
  return done < 0 ? -errno : done;
}

ssize_t Memory::Write(const void* buffer, std::size_t size, off_t offset) const {
  if (!InRam(offset, size)) return -EFAULT;
  const ssize_t done = real::Pwrite(ram_.file, buffer, size, ram_.offset + offset);
  return done < 0 ? -errno : done;
}

std::intptr_t Memory::Map(void* hint, std::size_t length, int protection, int flags, off_t offset) {
  if (offset >= kRamBytes) {
    return OpenFpgaWindow(fpga_.get(), bases_, length, protection, offset);
  }
  if (!InRam(offset, length)) return -EINVAL;
  void* address = real::Mmap(hint, length, protection, flags, ram_.file, ram_.offset + offset);
  return address == MAP_FAILED ? -errno : reinterpret_cast<std::intptr_t>(address);
}

}  // namespace board
