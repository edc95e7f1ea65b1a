#include "support/SystemCalls.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>

#include "support/Require.h"

namespace tessaline_fuzz {

namespace {

std::atomic<SystemCalls*> current = nullptr;

SystemCalls* Current(int fd) {
  return fd >= SystemCalls::kFirstDescriptor ? current.load() : nullptr;
}

// A stand-in for a closed standard stream is not a device.
bool IsDevice(const char* path) { return std::string_view(path) != "/dev/null"; }

}  // namespace

SystemCalls::SystemCalls() {
  Require(current == nullptr, "one stand-in at a time");
  current = this;
}

SystemCalls::~SystemCalls() { current = nullptr; }

int SystemCalls::Poll(pollfd*, nfds_t, int) {
  Require(false, "nobody waits for this device");
  return -1;
}

}  // namespace tessaline_fuzz

using tessaline_fuzz::Current;
using tessaline_fuzz::current;
using tessaline_fuzz::IsDevice;
using tessaline_fuzz::Require;

// These are the linker's names (--wrap). "__wrap_" functions receive the program's calls. "__real_"
// functions are those of the C library.
extern "C" {

// An allocation may fail, as on a small board. Freed blocks are kept only briefly, because no input
// runs for more than a few milliseconds.
const char* __asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=256:quarantine_size_mb=16:"
         "detect_stack_use_after_return=1";
}

// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long request, ...);
void* __real_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_munmap(void* address, size_t length);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_poll(pollfd* fds, nfds_t count, int timeout);
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left);
[[noreturn]] void __real_exit(int status);

int __wrap_open(const char* path, int flags, ...) {
  if (current != nullptr && IsDevice(path)) {
    Require((flags & O_CLOEXEC) != 0, "no device is left to a child");
    return current.load()->Open(path);
  }
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  return __real_open(path, flags, mode);
}

int __wrap_close(int fd) { return Current(fd) ? Current(fd)->Close(fd) : __real_close(fd); }

int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return Current(fd) ? Current(fd)->Ioctl(fd, request, argument)
                     : __real_ioctl(fd, request, argument);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  return Current(fd) ? Current(fd)->Map(length, fd, offset)
                     : __real_mmap(address, length, protection, flags, fd, offset);
}

int __wrap_munmap(void* address, size_t length) {
  return current != nullptr ? current.load()->Unmap(address, length)
                            : __real_munmap(address, length);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  return Current(fd) ? Current(fd)->Write(fd, data, size) : __real_write(fd, data, size);
}

int __wrap_poll(pollfd* fds, nfds_t count, int timeout) {
  const bool ours = std::any_of(
      fds, fds + count, [](const pollfd& awaited) { return Current(awaited.fd) != nullptr; });
  return ours ? current.load()->Poll(fds, count, timeout) : __real_poll(fds, count, timeout);
}

// There is no real chip to wait for.
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  return current != nullptr ? 0 : __real_clock_nanosleep(clock, flags, time, left);
}

void __wrap_exit(int status) {
  tessaline_fuzz::exit_status = status;
  if (tessaline_fuzz::on_exit_to != nullptr) longjmp(*tessaline_fuzz::on_exit_to, 1);
  __real_exit(status);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
