// The board's own heap. What it does is done by the kernel elsewhere, which needs nothing of
// the process: a signal handler may call it where it has interrupted malloc. Here that
// would find the heap of the C library locked, or half changed. So all that the board
// allocates in C++ comes from here, and never while a signal can come: a thread is
// inside (see Caller.h), or it is the frame generator's.

#include <sys/mman.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <mutex>
#include <new>

#include "RealCalls.h"

namespace board {
namespace {

// Blocks come in sizes: multiples of 16 bytes up to 1 KiB, powers of two up to 64 KiB. A
// block that is freed waits for the next of its size; it never becomes another.
constexpr std::size_t kStep = alignof(std::max_align_t);
constexpr std::size_t kLargestSmall = 1024;
constexpr std::size_t kLargest = 64 * 1024;
constexpr std::size_t kRegionBytes = 1024 * 1024;  // that blocks are cut from

// Also what is in front of a block that is handed out.
struct alignas(kStep) Block {
  std::size_t bytes;
  Block* next;  // free ones
};

constexpr std::size_t SizeFor(std::size_t bytes) {
  return bytes <= kLargestSmall ? (bytes + kStep - 1) / kStep * kStep : std::bit_ceil(bytes);
}

constexpr std::size_t ListFor(std::size_t size) {
  return size <= kLargestSmall ? size / kStep
                               : kLargestSmall / kStep +
                                     static_cast<std::size_t>(std::bit_width(size / kLargestSmall));
}

std::byte* Pages(std::size_t bytes) {
  void* const pages =
      real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) std::abort();  // as good as any end without memory
  return static_cast<std::byte*>(pages);
}

class Heap {
 public:
  Block* Take(std::size_t bytes) {
    if (bytes > kLargest) return new (Pages(bytes)) Block{bytes, nullptr};
    const std::size_t size = SizeFor(bytes);
    const std::lock_guard lock(mutex_);
    Block*& first = free_[ListFor(size)];
    if (first == nullptr) return Cut(size);
    Block* const block = first;
    first = block->next;
    return block;
  }

  void Return(Block* block) {
    if (block->bytes > kLargest) {
      real::Munmap(block, block->bytes);
      return;
    }
    const std::lock_guard lock(mutex_);
    Block*& first = free_[ListFor(block->bytes)];
    block->next = first;
    first = block;
  }

 private:
  Block* Cut(std::size_t size) {
    if (left_ < size) {
      region_ = Pages(kRegionBytes);
      left_ = kRegionBytes;
    }
    auto* const block = new (region_) Block{size, nullptr};
    region_ += size;
    left_ -= size;
    return block;
  }

  std::mutex mutex_;
  std::array<Block*, ListFor(kLargest) + 1> free_{};
  std::byte* region_ = nullptr;
  std::size_t left_ = 0;
};

constinit Heap heap;

}  // namespace
}  // namespace board

void* operator new(std::size_t size) { return board::heap.Take(sizeof(board::Block) + size) + 1; }

void operator delete(void* memory) noexcept {
  if (memory != nullptr) board::heap.Return(static_cast<board::Block*>(memory) - 1);
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
