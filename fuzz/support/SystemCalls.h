#pragma once

#include <poll.h>
#include <setjmp.h>
#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <utility>

namespace tessaline_fuzz {

// Replaces the kernel while it exists. The linker routes the library's system calls here first.
// Only one may exist at a time. It answers every open() of a device. It answers other calls if the
// descriptor or mapping is its own.
class SystemCalls {
 public:
  static constexpr int kFirstDescriptor = 1 << 20;  // ours; no real one is this high

  SystemCalls();
  virtual ~SystemCalls();
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  // These return what the C library returns. An error is -1 or MAP_FAILED, with errno.
  virtual int Open(const char* path) = 0;
  virtual int Close(int fd) = 0;
  virtual int Ioctl(int fd, unsigned long request, void* argument) = 0;
  virtual void* Map(std::size_t length, int fd, off_t offset) = 0;
  virtual int Unmap(void* address, std::size_t length) = 0;
  virtual ssize_t Write(int fd, const void* data, std::size_t size) = 0;
  // By default a wait is a finding.
  virtual int Poll(pollfd* fds, nfds_t count, int timeout);
};

// A call of exit() jumps here, with its status, and does not end the fuzzer.
inline jmp_buf* on_exit_to = nullptr;
inline int exit_status = 0;

// Makes the call. If it calls exit(), returns the status as a shell sees it. In that case no object
// on the stack is destroyed, as at the end of a process.
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
