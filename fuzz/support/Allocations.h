#pragma once

#include <sanitizer/allocator_interface.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "support/Require.h"

namespace tessaline_fuzz {

// The blocks that this thread has allocated and not freed. Other threads are not counted, because
// the fuzzer has one that allocates.
class Allocations {
 public:
  // Call once per process.
  static void Install() {
    __sanitizer_install_malloc_and_free_hooks(
        [](const volatile void* block, std::size_t) {
          if (!watching) return;
          Require(count < blocks.size(), "few blocks are live at a time");
          blocks[count++] = const_cast<const void*>(block);
        },
        [](const volatile void* block) {
          if (!watching) return;
          const auto end = blocks.begin() + count;
          const auto found = std::find(blocks.begin(), end, const_cast<const void*>(block));
          if (found == end) return;
          *found = blocks[--count];
        });
  }

  static void Begin() {
    count = 0;
    watching = true;
  }

  static std::size_t Live() { return count; }

  // Frees the remaining blocks, as the end of a process does.
  static void End() {
    watching = false;
    for (std::size_t i = 0; i < count; ++i) free(const_cast<void*>(blocks[i]));
    count = 0;
  }

  // While one of these exists, allocations are not counted.
  class NotNow {
   public:
    NotNow() : before_(watching) { watching = false; }
    ~NotNow() { watching = before_; }
    NotNow(const NotNow&) = delete;
    NotNow& operator=(const NotNow&) = delete;

   private:
    const bool before_;
  };

 private:
  static inline std::array<const void*, 1024> blocks;
  static inline std::size_t count = 0;
  static inline thread_local bool watching = false;
};

}  // namespace tessaline_fuzz
