#pragma once

// Counts the heap allocations that libtessaline.so makes, directly or through the standard
// libraries (a growing string, a stream), by the calling code. The virtual board allocates too,
// often on the library's own threads, and so may the handlers: these are not counted. Include it in
// only one file of a program: it replaces the program's allocation functions.

#include <errno.h>
#include <link.h>
#include <unwind.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace library_allocations {

// All other code is the standard libraries', which allocate for one of these.
enum Part { kLibrary, kBoard, kProgram, kParts };
struct Code {
  std::uintptr_t begin = 0, end = 0;
  bool Has(std::uintptr_t address) const { return address >= begin && address < end; }
};
inline std::array<Code, kParts> code;
inline std::atomic<std::uint64_t> count{0};

inline Part Owner(std::uintptr_t address) {
  for (const Part part : {kLibrary, kBoard, kProgram}) {
    if (code[part].Has(address)) return part;
  }
  return kParts;
}

// The search from an allocation to the code it is for.
struct Search {
  const std::uintptr_t caller;
  bool begun = false;
  Part owner = kParts;
};

inline _Unwind_Reason_Code LookAtFrame(_Unwind_Context* context, void* argument) {
  auto& search = *static_cast<Search*>(argument);
  const std::uintptr_t address = _Unwind_GetIP(context);
  search.begun = search.begun || address == search.caller;
  if (search.begun) search.owner = Owner(address);
  return search.owner == kParts ? _URC_NO_REASON : _URC_END_OF_STACK;
}

inline void Count(void* caller) {
  if (code[kLibrary].begin == 0) return;
  Search search{reinterpret_cast<std::uintptr_t>(caller)};
  search.owner = Owner(search.caller);
  if (search.owner == kParts) _Unwind_Backtrace(LookAtFrame, &search);
  if (search.owner == kLibrary) ++count;
}

inline int NoteCode(dl_phdr_info* info, std::size_t, void*) {
  const std::string_view name = info->dlpi_name;
  Part part = kParts;
  if (name.empty() && code[kProgram].begin == 0) part = kProgram;  // the first without a name
  if (name.find("libtessaline.so") != std::string_view::npos) part = kLibrary;
  if (name.find("libtessaline-board.so") != std::string_view::npos) part = kBoard;
  for (int i = 0; part != kParts && i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_LOAD || (info->dlpi_phdr[i].p_flags & PF_X) == 0) continue;
    const std::uintptr_t begin = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
    code[part] = {begin, begin + info->dlpi_phdr[i].p_memsz};
  }
  return 0;
}

}  // namespace library_allocations

// Call before counting. False: the library is not loaded.
inline bool FindLibraryCode() {
  dl_iterate_phdr(library_allocations::NoteCode, nullptr);
  return library_allocations::code[library_allocations::kLibrary].begin != 0;
}

inline std::uint64_t LibraryAllocations() { return library_allocations::count; }

#pragma GCC visibility push(default)
// The C++ library implements the other forms of new with these, or with the functions below.
[[gnu::noinline]] void* operator new(std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  if (void* memory = __libc_malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { free(memory); }

extern "C" {
void* malloc(std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_malloc(size);
}
void* calloc(std::size_t number, std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_calloc(number, size);
}
void* realloc(void* memory, std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_realloc(memory, size);
}
void* memalign(std::size_t alignment, std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  library_allocations::Count(__builtin_return_address(0));
  if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0) return EINVAL;
  *memory = __libc_memalign(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
}
#pragma GCC visibility pop
