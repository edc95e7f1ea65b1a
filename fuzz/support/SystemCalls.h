#pragma once

#include <poll.h>
#include <setjmp.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <utility>

namespace tessaline_fuzz {

// Stands in for the kernel while it lives: the program is linked such that what the
// library asks of the kernel comes here first. One at a time. Every open() of a device is
// answered here; the other calls where the descriptor or the mapping is of here.
class SystemCalls {
 public:
  static constexpr int kFirstDescriptor = 1 << 20;  // of ours: no real one is as high

  SystemCalls();
  virtual ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  // As the C library's: -1 or MAP_FAILED, and errno.
  virtual int Open(const char* path) = 0;
  virtual int Close(int fd) = 0;
  virtual int Ioctl(int fd, unsigned long request, void* argument) = 0;
  virtual void* Map(std::size_t length, int fd, off_t offset) = 0;
  virtual int Unmap(void* address, std::size_t length) = 0;
  virtual ssize_t Write(int fd, const void* data, std::size_t size) = 0;
  // Of devices that nobody waits for, a finding.
  virtual int Poll(pollfd* fds, nfds_t count, int timeout);
};

// Where a call of exit() goes instead of ending the fuzzer, and with what.
inline jmp_buf* on_exit_to = nullptr;
inline int exit_status = 0;

// Calls; the status as a shell sees it when that called exit(). Then the stack is left
// as a process's is when it ends: nothing on it is destroyed.
template <typename Call>
std::optional<int> ExitStatus(Call&& call) {
  jmp_buf here;
  on_exit_to = &here;
  const bool returned = setjmp(here) == 0;
  if (returned) std::forward<Call>(call)();
  on_exit_to = nullptr;
  if (returned) return std::nullopt;
  return exit_status & 0xFF;
}

}  // namespace tessaline_fuzz
