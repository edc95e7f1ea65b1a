// C library streams on files of the board. The C library reads and writes its own streams by
// internal calls that cannot be interposed, so these are custom streams (fopencookie). Their cookie
// is the descriptor.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <cstring>

#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

int DescriptorOf(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t CookieRead(void* cookie, char* buffer, std::size_t size) {
  return AsSystemCall(
      OnFile(DescriptorOf(cookie), false, "read", [=](OpenFile& file, bool cut_short) {
        return file.Read(buffer, cut_short ? size / 2 : size);
      }));
}

ssize_t CookieWrite(void* cookie, const char* buffer, std::size_t size) {
  const ssize_t written = AsSystemCall(
      OnFile(DescriptorOf(cookie), false, "write", [=](OpenFile& file, bool cut_short) {
        return file.Write(buffer, cut_short ? size / 2 : size);
      }));
  return std::max<ssize_t>(0, written);
}

int CookieSeek(void* cookie, off64_t* offset, int whence) {
  const off64_t position =
      AsSystemCall(OnFile(DescriptorOf(cookie), false, "lseek",
                          [=](OpenFile& file, bool) { return file.Seek(*offset, whence); }));
  if (position < 0) return -1;
  *offset = position;
  return 0;
}

int CookieClose(void* cookie) {
  return AsSystemCall(InBoard(false, [fd = DescriptorOf(cookie)] { return Release(fd); }));
}

FILE* StreamOn(int fd, const char* mode) {
  FILE* const stream = fopencookie(reinterpret_cast<void*>(std::intptr_t{fd}), mode,
                                   {CookieRead, CookieWrite, CookieSeek, CookieClose});
  if (stream != nullptr) stream->_fileno = fd;  // what fileno() returns
  return stream;
}

int FlagsOf(const char* mode) {
  const bool update = std::strchr(mode, '+') != nullptr;
  const int direction = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  return direction | (std::strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
}

FILE* FopenAny(const char* path, const char* mode) {
  if (!Board::PluggedIn() || mode == nullptr) return real::Fopen(path, mode);
  const int fd = InBoard(true, [=] { return OpenDevice(AT_FDCWD, path, FlagsOf(mode)); });
  if (fd == kNotOurs) return real::Fopen(path, mode);
  if (AsSystemCall(fd) < 0) return nullptr;
  FILE* const stream = StreamOn(fd, mode);
  if (stream == nullptr) InBoard(false, [=] { return Release(fd); });
  return stream;
}

// A stream of the C library cannot become a custom one. A standard stream is replaced by a new
// one, which programs find under its name; for any other the new one is only returned.
FILE* FreopenAny(const char* path, const char* mode, FILE* stream) {
  if (!Board::PluggedIn() || path == nullptr || mode == nullptr) {
    return real::Freopen(path, mode, stream);
  }
  const int fd = InBoard(true, [=] { return OpenDevice(AT_FDCWD, path, FlagsOf(mode)); });
  if (fd == kNotOurs) return real::Freopen(path, mode, stream);
  FILE** standard = stream == stdin    ? &stdin
                    : stream == stdout ? &stdout
                    : stream == stderr ? &stderr
                                       : nullptr;
  const int error = errno;
  fclose(stream);
  errno = error;
  if (AsSystemCall(fd) < 0) return nullptr;
  FILE* const opened = StreamOn(fd, mode);
  if (opened == nullptr) InBoard(false, [=] { return Release(fd); });
  if (opened != nullptr && standard != nullptr) *standard = opened;
  return opened;
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

FILE* fopen(const char* path, const char* mode) { return board::FopenAny(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return board::FopenAny(path, mode); }

FILE* freopen(const char* path, const char* mode, FILE* stream) {
  return board::FreopenAny(path, mode, stream);
}
FILE* freopen64(const char* path, const char* mode, FILE* stream) {
  return board::FreopenAny(path, mode, stream);
}

FILE* fdopen(int fd, const char* mode) {
  return board::IsBoardDescriptor(fd) ? board::StreamOn(fd, mode) : board::real::Fdopen(fd, mode);
}

}  // extern "C"
#pragma GCC visibility pop
