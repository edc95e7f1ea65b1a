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
constinit LibraryCall<char*(char*, std::size_t)> getcwd_call("getcwd");
constinit LibraryCall<char*()> current_name_call("get_current_dir_name");
constinit LibraryCall<int(int, int, ...)> fcntl_call("fcntl");
constinit LibraryCall<int(pollfd*, nfds_t, int)> poll_call("poll");
constinit LibraryCall<int(pollfd*, nfds_t, const timespec*, const sigset_t*)> ppoll_call("ppoll");
constinit LibraryCall<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select_call("select");
constinit LibraryCall<int(int, fd_set*, fd_set*, fd_set*, const timespec*, const sigset_t*)>
    pselect_call("pselect");
constinit LibraryCall<int(const timespec*, timespec*)> nanosleep_call("nanosleep");
constinit LibraryCall<int(clockid_t, int, const timespec*, timespec*)> clock_nanosleep_call(
    "clock_nanosleep");
constinit LibraryCall<int(int, const struct sigaction*, struct sigaction*)> sigaction_call(
    "sigaction");
constinit LibraryCall<__sighandler_t(int, __sighandler_t)> signal_call("signal");
constinit LibraryCall<__sighandler_t(int, __sighandler_t)> sysv_signal_call("__sysv_signal");
constinit LibraryCall<FILE*(const char*, const char*)> fopen_call("fopen");
constinit LibraryCall<int(int, const char*, int, int)> faccessat_call("faccessat");
constinit LibraryCall<DIR*(const char*)> opendir_call("opendir");
constinit LibraryCall<DIR*(int)> fdopendir_call("fdopendir");
constinit LibraryCall<dirent*(DIR*)> readdir_call("readdir");
constinit LibraryCall<int(DIR*)> closedir_call("closedir");
constinit LibraryCall<void(DIR*)> rewinddir_call("rewinddir");
constinit LibraryCall<long(DIR*)> telldir_call("telldir");
constinit LibraryCall<void(DIR*, long)> seekdir_call("seekdir");
constinit LibraryCall<int(DIR*)> dirfd_call("dirfd");
constinit LibraryCall<int(const char*, int, int (*)(const char*, int), glob_t*)> glob_call("glob");
constinit LibraryCall<char*(const char*, char*)> realpath_call("realpath");
constinit LibraryCall<FILE*(int, const char*)> fdopen_call("fdopen");
constinit LibraryCall<int(const char*, char* const*, char* const*)> execve_call("execve");
constinit LibraryCall<int(int, const char*, char* const*, char* const*, int)> execveat_call(
    "execveat");
constinit LibraryCall<int(int, char* const*, char* const*)> fexecve_call("fexecve");
constinit LibraryCall<int(const char*, char* const*, char* const*)> execvpe_call("execvpe");
using Spawn = int(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                  char* const*, char* const*);
constinit LibraryCall<Spawn> posix_spawn_call("posix_spawn");
constinit LibraryCall<Spawn> posix_spawnp_call("posix_spawnp");
constinit LibraryCall<void(int)> exit_call("_exit");
constinit LibraryCall<FILE*(const char*, const char*, FILE*)> freopen_call("freopen");
constinit LibraryCall<ssize_t(int, void*, std::size_t, off_t)> pread_call("pread");
constinit LibraryCall<ssize_t(int, const void*, std::size_t, off_t)> pwrite_call("pwrite");
constinit LibraryCall<ssize_t(int, const iovec*, int, off_t, int)> preadv_call("preadv2");
constinit LibraryCall<ssize_t(int, const iovec*, int, off_t, int)> pwritev_call("pwritev2");

// Functions that were not used by then are looked up here, before any other code runs, because a
// signal handler must not call the dynamic linker.
__attribute__((constructor(101))) void LookUpAll() {
  read_call.Get();
  write_call.Get();
  close_call.Get();
  getcwd_call.Get();
  current_name_call.Get();
  fcntl_call.Get();
  poll_call.Get();
  ppoll_call.Get();
  select_call.Get();
  pselect_call.Get();
  nanosleep_call.Get();
  clock_nanosleep_call.Get();
  sigaction_call.Get();
  signal_call.Get();
  sysv_signal_call.Get();
  fopen_call.Get();
  faccessat_call.Get();
  opendir_call.Get();
  fdopendir_call.Get();
  readdir_call.Get();
  closedir_call.Get();
  rewinddir_call.Get();
  telldir_call.Get();
  seekdir_call.Get();
  dirfd_call.Get();
  glob_call.Get();
  realpath_call.Get();
  fdopen_call.Get();
  execve_call.Get();
  execveat_call.Get();
  fexecve_call.Get();
  execvpe_call.Get();
  posix_spawn_call.Get();
  posix_spawnp_call.Get();
  exit_call.Get();
  freopen_call.Get();
  pread_call.Get();
  pwrite_call.Get();
  preadv_call.Get();
  pwritev_call.Get();
}

}  // namespace

// Each of these is exactly one system call. They are used before the dynamic linker is available,
// so they call the kernel directly.
int Open(int directory, const char* path, int flags, mode_t mode) {
  return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
}

int Fstatat(int directory, const char* path, struct stat* status, int flags) {
  return static_cast<int>(syscall(SYS_newfstatat, directory, path, status, flags));
}

int Statx(int directory, const char* path, int flags, unsigned mask, struct statx* status) {
  return static_cast<int>(syscall(SYS_statx, directory, path, flags, mask, status));
}

int Statfs(const char* path, struct statfs* status) {
  return static_cast<int>(syscall(SYS_statfs, path, status));
}

int Fstatfs(int fd, struct statfs* status) {
  return static_cast<int>(syscall(SYS_fstatfs, fd, status));
}

// The C library checks what a kernel without this call cannot.
int Faccessat(int directory, const char* path, int mode, int flags) {
  return faccessat_call.Get()(directory, path, mode, flags);
}

ssize_t Readlinkat(int directory, const char* path, char* target, std::size_t size) {
  return syscall(SYS_readlinkat, directory, path, target, size);
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

int Mprotect(void* address, std::size_t length, int protection) {
  return static_cast<int>(syscall(SYS_mprotect, address, length, protection));
}

void* Mremap(void* address, std::size_t before, std::size_t length, int flags, void* target) {
  return reinterpret_cast<void*>(syscall(SYS_mremap, address, before, length, flags, target));
}

off_t Lseek(int fd, off_t offset, int whence) { return syscall(SYS_lseek, fd, offset, whence); }

ssize_t Sendfile(int out, int in, off_t* offset, std::size_t size) {
  return syscall(SYS_sendfile, out, in, offset, size);
}

ssize_t Splice(int in, off_t* in_offset, int out, off_t* out_offset, std::size_t size,
               unsigned flags) {
  return syscall(SYS_splice, in, in_offset, out, out_offset, size, flags);
}

ssize_t CopyFileRange(int in, off_t* in_offset, int out, off_t* out_offset, std::size_t size,
                      unsigned flags) {
  return syscall(SYS_copy_file_range, in, in_offset, out, out_offset, size, flags);
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

ssize_t Pread(int fd, void* buffer, std::size_t size, off_t offset) {
  return pread_call.Get()(fd, buffer, size, offset);
}

ssize_t Pwrite(int fd, const void* buffer, std::size_t size, off_t offset) {
  return pwrite_call.Get()(fd, buffer, size, offset);
}

ssize_t Preadv(int fd, const iovec* parts, int count, off_t offset, int flags) {
  return preadv_call.Get()(fd, parts, count, offset, flags);
}

ssize_t Pwritev(int fd, const iovec* parts, int count, off_t offset, int flags) {
  return pwritev_call.Get()(fd, parts, count, offset, flags);
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

int Sigaction(int number, const struct sigaction* action, struct sigaction* before) {
  return sigaction_call.Get()(number, action, before);
}

__sighandler_t Signal(int number, __sighandler_t handler) {
  return signal_call.Get()(number, handler);
}

__sighandler_t SysvSignal(int number, __sighandler_t handler) {
  return sysv_signal_call.Get()(number, handler);
}

DIR* Opendir(const char* path) { return opendir_call.Get()(path); }

DIR* Fdopendir(int fd) { return fdopendir_call.Get()(fd); }

dirent* Readdir(DIR* folder) { return readdir_call.Get()(folder); }

int Closedir(DIR* folder) { return closedir_call.Get()(folder); }

void Rewinddir(DIR* folder) { rewinddir_call.Get()(folder); }

long Telldir(DIR* folder) { return telldir_call.Get()(folder); }

void Seekdir(DIR* folder, long place) { seekdir_call.Get()(folder, place); }

int Dirfd(DIR* folder) { return dirfd_call.Get()(folder); }

int Glob(const char* pattern, int flags, int (*error)(const char*, int), glob_t* found) {
  return glob_call.Get()(pattern, flags, error, found);
}

char* Realpath(const char* path, char* resolved) { return realpath_call.Get()(path, resolved); }

char* GetCurrentDirName() { return current_name_call.Get()(); }

char* Getcwd(char* buffer, std::size_t size) { return getcwd_call.Get()(buffer, size); }

FILE* Fdopen(int fd, const char* mode) { return fdopen_call.Get()(fd, mode); }

int Execve(const char* path, char* const* words, char* const* environment) {
  return execve_call.Get()(path, words, environment);
}

int Execveat(int directory, const char* path, char* const* words, char* const* environment,
             int flags) {
  return execveat_call.Get()(directory, path, words, environment, flags);
}

int Fexecve(int file, char* const* words, char* const* environment) {
  return fexecve_call.Get()(file, words, environment);
}

int Execvpe(const char* name, char* const* words, char* const* environment) {
  return execvpe_call.Get()(name, words, environment);
}

int PosixSpawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
               const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
  return posix_spawn_call.Get()(child, path, actions, attributes, words, environment);
}

int PosixSpawnp(pid_t* child, const char* name, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
  return posix_spawnp_call.Get()(child, name, actions, attributes, words, environment);
}

void Exit(int status) {
  for (;;) exit_call.Get()(status);
}

FILE* Fopen(const char* path, const char* mode) { return fopen_call.Get()(path, mode); }

FILE* Freopen(const char* path, const char* mode, FILE* stream) {
  return freopen_call.Get()(path, mode, stream);
}

}  // namespace board::real
