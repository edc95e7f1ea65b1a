// The board's own heap. A signal handler may call the board on a thread that it interrupted
// inside malloc: on a sensor that is a system call like any other. So nothing of the board
// takes memory from the C library. The standard C++ library is linked into it for this, with
// its symbols hidden, and calls these operators too.
#include <pthread.h>
#include <signal.h>
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
 private:
  void* do_allocate(std::size_t bytes, std::size_t /*alignment*/) override {
    void* const memory =
        real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) abort();
    return memory;
  }
  void do_deallocate(void* memory, std::size_t bytes, std::size_t /*alignment*/) override {
    real::Munmap(memory, bytes);
  }
  bool do_is_equal(const memory_resource& other) const noexcept override { return this == &other; }
};

class Heap {
 public:
  void* Allocate(std::size_t bytes) {
    const Turn turn(*this);
    return pool_.allocate(bytes, kAlignment);
  }
  void Free(void* memory, std::size_t bytes) {
    const Turn turn(*this);
    pool_.deallocate(memory, bytes, kAlignment);
  }

  static constexpr std::size_t kAlignment = alignof(std::max_align_t);

 private:
  // Also outside of the board's calls, in the functions of its interface.
  class Turn {
   public:
    explicit Turn(Heap& heap) : heap_(heap) {
      sigset_t signals;
      sigfillset(&signals);
      sigdelset(&signals, SIGSEGV);
      pthread_sigmask(SIG_BLOCK, &signals, &before_);
      heap_.mutex_.lock();
    }
    ~Turn() {
      heap_.mutex_.unlock();
      pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    Heap& heap_;
    sigset_t before_;
  };

  Pages pages_;
  std::pmr::unsynchronized_pool_resource pool_{{0, std::size_t{1} << 16}, &pages_};
  std::mutex mutex_;
};

// Never destroyed: threads are inside the board until the process is gone.
Heap& TheHeap() {
  alignas(Heap) static std::byte place[sizeof(Heap)];
  static Heap* const heap = new (place) Heap;
  return *heap;
}

// Before each block: where the whole of it begins, and its size.
struct Note {
  void* begin;
  std::size_t bytes;
};

void* Allocate(std::size_t bytes, std::size_t alignment) {
  const std::size_t whole = bytes + sizeof(Note) + alignment;
  void* const begin = TheHeap().Allocate(whole);
  void* place = static_cast<std::byte*>(begin) + sizeof(Note);
  std::size_t room = whole - sizeof(Note);
  std::align(alignment, bytes, place, room);
  static_cast<Note*>(place)[-1] = {begin, whole};
  return place;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  const Note note = static_cast<const Note*>(memory)[-1];
  TheHeap().Free(note.begin, note.bytes);
}

}  // namespace
}  // namespace board

void* operator new(std::size_t bytes) { return board::Allocate(bytes, board::Heap::kAlignment); }
void* operator new(std::size_t bytes, std::align_val_t alignment) {
  return board::Allocate(bytes, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept { board::Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { board::Free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { board::Free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { board::Free(memory); }
