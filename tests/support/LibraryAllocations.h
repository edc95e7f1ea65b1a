#pragma once

// Counts the heap allocations that libtessaline.so itself asks for, by the return
// address of each. The virtual board allocates too, often on the library's own
// threads, and must not be counted. To be included by one file of a program: it
// replaces the program's allocation functions.

#include <link.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>

extern "C" void* __libc_malloc(std::size_t);

namespace library_allocations {

inline std::uintptr_t begin = 0;
inline std::uintptr_t end = 0;
inline std::atomic<std::uint64_t> count{0};

inline void Count(void* caller) {
  const auto address = reinterpret_cast<std::uintptr_t>(caller);
  if (address >= begin && address < end) ++count;
}

inline int NoteLibrary(dl_phdr_info* info, std::size_t, void*) {
  if (std::string_view(info->dlpi_name).find("libtessaline.so") == std::string_view::npos) return 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_LOAD || (info->dlpi_phdr[i].p_flags & PF_X) == 0) continue;
    begin = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
    end = begin + info->dlpi_phdr[i].p_memsz;
  }
  return 1;
}

}  // namespace library_allocations

// Before counting. False: the library is not loaded.
inline bool FindLibraryCode() {
  dl_iterate_phdr(library_allocations::NoteLibrary, nullptr);
  return library_allocations::begin != 0;
}

inline std::uint64_t LibraryAllocations() { return library_allocations::count; }

#pragma GCC visibility push(default)
[[gnu::noinline]] void* operator new(std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  if (void* memory = __libc_malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { free(memory); }
extern "C" void* malloc(std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_malloc(size);
}
#pragma GCC visibility pop
