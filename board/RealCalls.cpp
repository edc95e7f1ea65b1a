#include "RealCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace board::real {
namespace {

// A function of the C library. It is looked up at its first use, because a sanitizer's runtime
// calls it before our constructors have run.
template <typename Function>
class LibraryCall {
 public:
  constexpr explicit LibraryCall(const char* name) : name_(name) {}
  Function* Get() {
    Function* function = function_;
    if (function == nullptr) {
      function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name_));
      function_ = function;
    }
    return function;
  }

 private:
  const char* const name_;
  std::atomic<Function*> function_{nullptr};
};

constinit LibraryCall<ssize_t(int, void*, std::size_t)> read_call("read");
constinit LibraryCall<ssize_t(int, const void*, std::size_t)> write_call("write");
constinit LibraryCall<int(int)> close_call("close");
constinit LibraryCall<int(int, int, ...)> fcntl_call("fcntl");
constinit LibraryCall<int(pollfd*, nfds_t, int)> poll_call("poll");
constinit LibraryCall<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> ppoll_call("ppoll");
constinit LibraryCall<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select_call("select");
constinit LibraryCall<int(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)>
    pselect_call("pselect");
constinit LibraryCall<int(const timespec*, timespec*)> nanosleep_call("nanosleep");
constinit LibraryCall<int(clockid_t, int, const timespec*, timespec*)> clock_nanosleep_call(
    "clock_nanosleep");
constinit LibraryCall<FILE*(const char*, const char*)> fopen_call("fopen");
constinit LibraryCall<FILE*(int, const char*)> fdopen_call("fdopen");

// Functions that were not used by then are looked up here, before any other code runs, because a
// signal handler must not call the dynamic linker.
__attribute__((constructor(101))) void LookUpAll() {
  read_call.Get();
  write_call.Get();
  close_call.Get();
  fcntl_call.Get();
  poll_call.Get();
  ppoll_call.Get();
  select_call.Get();
  pselect_call.Get();
  nanosleep_call.Get();
  clock_nanosleep_call.Get();
  fopen_call.Get();
  fdopen_call.Get();
}

}  // namespace

// Each of these is exactly one system call. They are used before the dynamic linker is available,
// so they call the kernel directly.
int Open(int directory, const char* path, int flags, mode_t mode) {
  return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

int Eventfd(unsigned count, int flags) {
  return static_cast<int>(syscall(SYS_eventfd2, count, flags));
}

int Ioctl(int fd, unsigned long request, void* argument) {
  return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

void* Mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset) {
  return reinterpret_cast<void*>(syscall(SYS_mmap, hint, length, protection, flags, fd, offset));
}

int Munmap(void* address, std::size_t length) {
  return static_cast<int>(syscall(SYS_munmap, address, length));
}

int EpollControl(int set, int operation, int fd, epoll_event* event) {
  return static_cast<int>(syscall(SYS_epoll_ctl, set, operation, fd, event));
}

int CloseRange(unsigned first, unsigned last, int flags) {
  return static_cast<int>(syscall(SYS_close_range, first, last, flags));
}

int Dup(int fd) { return static_cast<int>(syscall(SYS_dup, fd)); }

// Some processors' kernels do not have this call.
int Dup2(int fd, int target) {
  if (fd == target) return Fcntl(fd, F_GETFD, 0) < 0 ? -1 : fd;
  return Dup3(fd, target, 0);
}

int Dup3(int fd, int target, int flags) {
  return static_cast<int>(syscall(SYS_dup3, fd, target, flags));
}

// These are cancellation points and must stay so.
ssize_t Read(int fd, void* buffer, std::size_t size) { return read_call.Get()(fd, buffer, size); }

ssize_t Write(int fd, const void* buffer, std::size_t size) {
  return write_call.Get()(fd, buffer, size);
}

int Close(int fd) { return close_call.Get()(fd); }

int Fcntl(int fd, int command, long argument) { return fcntl_call.Get()(fd, command, argument); }

int Poll(pollfd* fds, nfds_t count, int timeout) { return poll_call.Get()(fds, count, timeout); }

int Ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  return ppoll_call.Get()(fds, count, timeout, signals);
}

int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  return select_call.Get()(count, read, write, except, timeout);
}

int Pselect(int count, fd_set* read, fd_set* write, fd_set* except, const timespec* timeout,
            const sigset_t* signals) {
  return pselect_call.Get()(count, read, write, except, timeout, signals);
}

int Nanosleep(const timespec* request, timespec* remaining) {
  return nanosleep_call.Get()(request, remaining);
}

int ClockNanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  return clock_nanosleep_call.Get()(clock, flags, request, remaining);
}

FILE* Fdopen(int fd, const char* mode) { return fdopen_call.Get()(fd, mode); }

FILE* Fopen(const char* path, const char* mode) { return fopen_call.Get()(path, mode); }

}  // namespace board::real
