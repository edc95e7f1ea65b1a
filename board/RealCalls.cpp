#include "RealCalls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace board::real {
namespace {

// Looked up at the first use: a sanitizer's runtime calls through here before any
// constructor of ours has run.
template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// Those that wrap exactly one system call and are used before the dynamic linker
// can be asked go straight to the kernel.
int Open(int directory, const char* path, int flags, mode_t mode) {
  return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
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

// Not every processor's kernel has the call.
int Dup2(int fd, int target) {
  if (fd == target) return Fcntl(fd, F_GETFD, 0) < 0 ? -1 : fd;
  return Dup3(fd, target, 0);
}

int Dup3(int fd, int target, int flags) {
  return static_cast<int>(syscall(SYS_dup3, fd, target, flags));
}

// These are cancellation points and stay so.
ssize_t Read(int fd, void* buffer, std::size_t size) {
  static const auto next = Next<ssize_t (*)(int, void*, std::size_t)>("read");
  return next(fd, buffer, size);
}

ssize_t Write(int fd, const void* buffer, std::size_t size) {
  static const auto next = Next<ssize_t (*)(int, const void*, std::size_t)>("write");
  return next(fd, buffer, size);
}

int Close(int fd) {
  static const auto next = Next<int (*)(int)>("close");
  return next(fd);
}

int Fcntl(int fd, int command, long argument) {
  static const auto next = Next<int (*)(int, int, ...)>("fcntl");
  return next(fd, command, argument);
}

int Poll(pollfd* fds, nfds_t count, int timeout) {
  static const auto next = Next<int (*)(pollfd*, nfds_t, int)>("poll");
  return next(fds, count, timeout);
}

int Ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals) {
  static const auto next =
      Next<int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
  return next(fds, count, timeout, signals);
}

int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  static const auto next = Next<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
  return next(count, read, write, except, timeout);
}

int Pselect(int count, fd_set* read, fd_set* write, fd_set* except, const timespec* timeout,
            const sigset_t* signals) {
  static const auto next =
      Next<int (*)(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)>("pselect");
  return next(count, read, write, except, timeout, signals);
}

int Nanosleep(const timespec* request, timespec* remaining) {
  static const auto next = Next<int (*)(const timespec*, timespec*)>("nanosleep");
  return next(request, remaining);
}

int ClockNanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  static const auto next =
      Next<int (*)(clockid_t, int, const timespec*, timespec*)>("clock_nanosleep");
  return next(clock, flags, request, remaining);
}

FILE* Fdopen(int fd, const char* mode) {
  static const auto next = Next<FILE* (*)(int, const char*)>("fdopen");
  return next(fd, mode);
}

FILE* Fopen(const char* path, const char* mode) {
  static const auto next = Next<FILE* (*)(const char*, const char*)>("fopen");
  return next(path, mode);
}

}  // namespace board::real
