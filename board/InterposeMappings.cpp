// Changes of mappings. A register window keeps its access rights from the processor, so what a
// program sets is kept beside it.

#include <errno.h>
#include <stdarg.h>
#include <sys/mman.h>

#include "Interpose.h"
#include "RealCalls.h"
#include "devices/FpgaWindow.h"

namespace board {
namespace {

// The kernel neither grows nor moves a mapping of a device's registers; it may stay as it is.
void* RemapWindow(void* address, std::size_t length, int flags) {
  const bool stays = length > 0 && length <= FpgaWindowBytes(address) &&
                     (flags & (MREMAP_FIXED | MREMAP_DONTUNMAP)) == 0;
  if (stays) return address;
  errno = length == 0 ? EINVAL : EFAULT;
  return MAP_FAILED;
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int mprotect(void* address, size_t length, int protection) {
  if (board::IsFpgaWindow(address)) return board::ProtectFpgaWindow(address, protection);
  return board::real::Mprotect(address, length, protection);
}

void* mremap(void* address, size_t before, size_t length, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  void* const target = va_arg(arguments, void*);
  va_end(arguments);
  if (board::IsFpgaWindow(address)) return board::RemapWindow(address, length, flags);
  return board::real::Mremap(address, before, length, flags, target);
}

}  // extern "C"
#pragma GCC visibility pop
