// The board's own heap. What it does is done by the kernel elsewhere, which needs nothing of
// the process: a signal handler may call it where it has interrupted malloc. Here that
// would find the heap of the C library locked, or half changed. So all that the board
// allocates in C++ comes from here, and never while a signal can come: a thread is
// inside (see Caller.h), or it is the frame generator's.

#include <sys/mman.h>

#include <cstddef>
#include <cstdlib>
#include <memory_resource>
#include <mutex>
#include <new>

#include "RealCalls.h"

namespace board {
namespace {

class Pages : public std::pmr::memory_resource {
  void* do_allocate(std::size_t bytes, std::size_t) override {
    void* const pages =
        real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) std::abort();  // as good as any end without memory
    return pages;
  }
  void do_deallocate(void* pages, std::size_t bytes, std::size_t) override {
    real::Munmap(pages, bytes);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }
};

struct Heap {
  Pages pages;
  std::mutex mutex;
  std::pmr::unsynchronized_pool_resource pool{{0, std::size_t{1} << 16}, &pages};
};

// Never destroyed: somebody deletes until the very end of the process.
Heap& TheHeap() {
  alignas(Heap) static std::byte place[sizeof(Heap)];
  static Heap* const heap = new (place) Heap;
  return *heap;
}

// In front of what is handed out.
struct alignas(std::max_align_t) Header {
  std::size_t bytes;
};

void* Allocate(std::size_t size) {
  const std::size_t bytes = sizeof(Header) + size;
  Heap& heap = TheHeap();
  const std::lock_guard lock(heap.mutex);
  return new (heap.pool.allocate(bytes, alignof(Header))) Header{bytes} + 1;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  Header* const header = static_cast<Header*>(memory) - 1;
  Heap& heap = TheHeap();
  const std::lock_guard lock(heap.mutex);
  heap.pool.deallocate(header, header->bytes, alignof(Header));
}

}  // namespace
}  // namespace board

void* operator new(std::size_t size) { return board::Allocate(size); }
void operator delete(void* memory) noexcept { board::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { board::Free(memory); }
