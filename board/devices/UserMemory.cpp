#include "devices/UserMemory.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace board {
namespace {

constexpr std::uintptr_t kPageBytes = 4096;
constexpr std::uintptr_t kLowest = 65536;              // mmap_min_addr
constexpr std::uintptr_t kHighest = 0x7fff'ffff'f000;  // of the user's half

// Old sandboxes do not permit the safe call.
bool NotPermitted() { return errno == EPERM || errno == ENOSYS; }

}  // namespace

bool CopyFromUser(void* to, const void* from, std::size_t size) {
  if (!IsUserAddress(from, size)) return false;
  const iovec local{to, size};
  const iovec user{const_cast<void*>(from), size};
  const ssize_t copied = process_vm_readv(getpid(), &local, 1, &user, 1, 0);
  if (copied < 0 && NotPermitted()) {
    std::memcpy(to, from, size);
    return true;
  }
  return copied == static_cast<ssize_t>(size);
}

bool CopyToUser(void* to, const void* from, std::size_t size) {
  if (!IsUserAddress(to, size)) return false;
  const iovec local{const_cast<void*>(from), size};
  const iovec user{to, size};
  const ssize_t copied = process_vm_writev(getpid(), &local, 1, &user, 1, 0);
  if (copied < 0 && NotPermitted()) {
    std::memcpy(to, from, size);
    return true;
  }
  return copied == static_cast<ssize_t>(size);
}

bool IsUserAddress(const void* address, std::size_t size) {
  const auto first = reinterpret_cast<std::uintptr_t>(address);
  return first >= kLowest && first < kHighest && size <= kHighest - first;
}

bool IsMapped(void* address, std::size_t size) {
  if (!IsUserAddress(address, size)) return false;
  const auto first = reinterpret_cast<std::uintptr_t>(address) & ~(kPageBytes - 1);
  const auto end = reinterpret_cast<std::uintptr_t>(address) + size;
  return msync(reinterpret_cast<void*>(first), end - first, MS_ASYNC) == 0;
}

// The kernel's answer to a write tells it. Memory is one mapping, as a rule, so its ends tell of
// all of it.
bool IsWritable(void* address, std::size_t size) {
  auto* const first = static_cast<std::uint8_t*>(address);
  for (std::uint8_t* const end : {first, first + size - 1}) {
    std::uint8_t byte = 0;
    if (!CopyFromUser(&byte, end, 1) || !CopyToUser(end, &byte, 1)) return false;
  }
  return true;
}

}  // namespace board
