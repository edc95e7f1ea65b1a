// The C library's streams on files of the board.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

// What is behind a stream of the C library.
struct Cookie {
  std::shared_ptr<OpenFile> file;
  std::string device;
};

ssize_t CookieRead(void* cookie, char* buffer, std::size_t size) {
  const auto& stream = *static_cast<Cookie*>(cookie);
  const CallFate fate = PlantedFault(stream.device, "read");
  if (fate.error != 0) return AsSystemCall<ssize_t>(-fate.error);
  return AsSystemCall(stream.file->Read(buffer, fate.cut_short ? size / 2 : size));
}

ssize_t CookieWrite(void* cookie, const char* buffer, std::size_t size) {
  const auto& stream = *static_cast<Cookie*>(cookie);
  const CallFate fate = PlantedFault(stream.device, "write");
  if (fate.error != 0) return 0;
  return std::max<ssize_t>(0, stream.file->Write(buffer, fate.cut_short ? size / 2 : size));
}

int CookieClose(void* cookie) {
  delete static_cast<Cookie*>(cookie);
  return 0;
}

// The stream, or null and the error; 0 for none of the board's.
FILE* OpenStream(const char* path, const char* mode, int& error) {
  const std::shared_ptr<Board> board = Board::Current();
  Device* device = board == nullptr || path == nullptr ? nullptr : board->Find(path);
  if (device == nullptr) return nullptr;
  const bool update = mode[0] != '\0' && std::string(mode).find('+') != std::string::npos;
  const int flags = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  error = PlantedFault(device->Name(), "open").error;
  std::shared_ptr<OpenFile> file;
  if (error == 0) std::tie(file, error) = device->Open(path, flags);
  if (file == nullptr) return nullptr;
  auto* cookie = new Cookie{std::move(file), device->Name()};
  return fopencookie(cookie, mode, {CookieRead, CookieWrite, nullptr, CookieClose});
}

FILE* FopenAny(const char* path, const char* mode) {
  if (Board::PluggedIn()) {
    int error = 0;
    FILE* stream = InBoard(true, [&error, path, mode] { return OpenStream(path, mode, error); });
    if (error != 0) errno = error;
    if (stream != nullptr || error != 0) return stream;
  }
  return real::Fopen(path, mode);
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

FILE* fopen(const char* path, const char* mode) { return board::FopenAny(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return board::FopenAny(path, mode); }

}  // extern "C"
#pragma GCC visibility pop
