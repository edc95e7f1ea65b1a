// The board's own heap.
//
// A signal handler may make a system call while it has interrupted malloc, because the kernel does
// not use the process's heap. The board does the kernel's work inside the process, where malloc
// would find the C library's heap locked or half changed. So this library's operator new allocates
// from its own heap, and only where no signal can arrive: on a thread inside the board, where
// signals are blocked (see Caller.h), or on the frame engine's thread.

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

// Block sizes are multiples of 16 bytes up to 1 KiB, then powers of two up to 64 KiB. A freed
// block waits for the next request of its size; it is never split or merged.
constexpr std::size_t kStep = alignof(std::max_align_t);
constexpr std::size_t kLargestSmall = 1024;
constexpr std::size_t kLargest = 64 * 1024;
constexpr std::size_t kRegionBytes = 1024 * 1024;  // blocks are cut from regions

// The header in front of every block.
struct alignas(kStep) Block {
  std::size_t bytes;
  Block* next;  // in the list of free blocks
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
  if (pages == MAP_FAILED) std::abort();  // the board cannot continue without memory
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
