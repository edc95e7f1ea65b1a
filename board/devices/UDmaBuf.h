#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "devices/OpenCount.h"

namespace board {

class BoardMemory;

// The u-dma-buf driver's buffer: /dev/udmabuf0 and its attributes below
// /sys/class/u-dma-buf/udmabuf0. The memory is real and shared by all mappings. The caches are
// coherent on the virtual board, so a sync only checks its range.
class UDmaBuf : public CountedDevice {
 public:
  static constexpr std::size_t kBytes = std::size_t{512} << 20;
  static constexpr std::uint64_t kPhysicalAddress = 0x2000'0000;

  explicit UDmaBuf(BoardMemory& memory);

  std::string Name() const override;
  bool Claims(const std::string& path) const override;
  OpenResult Open(const std::string& path, int flags) override;
  void List(FileTree& tree) const override;

 private:
  struct Buffer;
  class File;

  OpenResult OpenAttribute(const std::string& name, int flags);

  std::shared_ptr<Buffer> buffer_;
};

}  // namespace board
