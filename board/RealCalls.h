#pragma once

#include <poll.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdio>

// The C library's own functions, behind the names the board stands in front of.
namespace board::real {

int Open(int directory, const char* path, int flags, mode_t mode);
ssize_t Read(int fd, void* buffer, std::size_t size);
ssize_t Write(int fd, const void* buffer, std::size_t size);
int Ioctl(int fd, unsigned long request, void* argument);
void* Mmap(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset);
int Munmap(void* address, std::size_t length);
int Close(int fd);
int Poll(pollfd* fds, nfds_t count, int timeout);
int Nanosleep(const timespec* request, timespec* remaining);
int ClockNanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining);
FILE* Fopen(const char* path, const char* mode);

}  // namespace board::real
