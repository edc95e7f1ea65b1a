#pragma once

#include <dirent.h>
#include <glob.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#include <time.h>

#include <cstddef>
#include <cstdio>

// The C library's own functions, whose names the board interposes.
namespace board::real {

char* GetCurrentDirName();
char* Getcwd(char* buffer, std::size_t size);
int Fstatat(int directory, const char* path, struct stat* status, int flags);
int Statx(int directory, const char* path, int flags, unsigned mask, struct statx* status);
int Faccessat(int directory, const char* path, int mode, int flags);
int Statfs(const char* path, struct statfs* status);
int Fstatfs(int fd, struct statfs* status);
ssize_t Readlinkat(int directory, const char* path, char* target, std::size_t size);
int Open(int directory, const char* path, int flags, mode_t mode);
ssize_t Read(int fd, void* buffer, std::size_t size);
ssize_t Write(int fd, const void* buffer, std::size_t size);
int Ioctl(int fd, unsigned long request, void* argument);
void* Mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset);
int Munmap(void* address, std::size_t length);
int Mprotect(void* address, std::size_t length, int protection);
void* Mremap(void* address, std::size_t before, std::size_t length, int flags, void* target);
off_t Lseek(int fd, off_t offset, int whence);
ssize_t Pread(int fd, void* buffer, std::size_t size, off_t offset);
ssize_t Pwrite(int fd, const void* buffer, std::size_t size, off_t offset);
// An offset of -1 stands for the file's position.
ssize_t Preadv(int fd, const iovec* parts, int count, off_t offset, int flags);
ssize_t Pwritev(int fd, const iovec* parts, int count, off_t offset, int flags);
ssize_t Sendfile(int out, int in, off_t* offset, std::size_t size);
ssize_t Splice(int in, off_t* in_offset, int out, off_t* out_offset, std::size_t size,
               unsigned flags);
ssize_t CopyFileRange(int in, off_t* in_offset, int out, off_t* out_offset, std::size_t size,
                      unsigned flags);
int Close(int fd);
int CloseRange(unsigned first, unsigned last, int flags);
int Dup(int fd);
int Dup2(int fd, int target);
int Dup3(int fd, int target, int flags);
int Fcntl(int fd, int command, long argument);
int Poll(pollfd* fds, nfds_t count, int timeout);
int Ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* signals);
int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
int Pselect(int count, fd_set* read, fd_set* write, fd_set* except, const timespec* timeout,
            const sigset_t* signals);
int EpollControl(int set, int operation, int fd, epoll_event* event);
int Nanosleep(const timespec* request, timespec* remaining);
int Sigaction(int number, const struct sigaction* action, struct sigaction* before);
__sighandler_t Signal(int number, __sighandler_t handler);
__sighandler_t SysvSignal(int number, __sighandler_t handler);
int ClockNanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining);
DIR* Opendir(const char* path);
DIR* Fdopendir(int fd);
dirent* Readdir(DIR* folder);
int Closedir(DIR* folder);
void Rewinddir(DIR* folder);
long Telldir(DIR* folder);
void Seekdir(DIR* folder, long place);
int Dirfd(DIR* folder);
int Glob(const char* pattern, int flags, int (*error)(const char*, int), glob_t* found);
char* Realpath(const char* path, char* resolved);
FILE* Fdopen(int fd, const char* mode);
FILE* Fopen(const char* path, const char* mode);
FILE* Freopen(const char* path, const char* mode, FILE* stream);

int Eventfd(unsigned count, int flags);
int Execve(const char* path, char* const* words, char* const* environment);
int Execveat(int directory, const char* path, char* const* words, char* const* environment,
             int flags);
int Fexecve(int file, char* const* words, char* const* environment);
int Execvpe(const char* name, char* const* words, char* const* environment);
int PosixSpawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
               const posix_spawnattr_t* attributes, char* const* words, char* const* environment);
int PosixSpawnp(pid_t* child, const char* name, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment);
[[noreturn]] void Exit(int status);

}  // namespace board::real
