// Files and mappings.

#include "Interpose.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/mman.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "RealCalls.h"
#include "Transcript.h"
#include "devices/FpgaWindow.h"
#include "files/Place.h"

namespace board {

namespace {

// A folder, or what O_PATH gives.
int OpenPlace(const std::shared_ptr<Board>& board, const Place& place, int flags) {
  const bool folder = place.node.IsFolder();
  if (folder && (flags & O_ACCMODE) != O_RDONLY) return -EISDIR;
  if (!folder && (flags & O_DIRECTORY) != 0) return -ENOTDIR;
  return Install({board, std::make_shared<PlaceFile>(folder), "", place.path},
                 (flags & O_CLOEXEC) != 0);
}

// A device node by its own name, which is what programs open all the time, needs no look at all
// files of the board.
bool IsDirect(const Board& board, std::string_view path, int flags) {
  return (flags & (O_PATH | O_DIRECTORY)) == 0 && path.starts_with("/dev/") &&
         board.Find(std::string(path)) != nullptr;
}

}  // namespace

int OpenDevice(int directory, const char* path, int flags) {
  constexpr int kOfTheOpening = O_CREAT | O_EXCL | O_NOCTTY | O_TRUNC | O_CLOEXEC;
  const std::shared_ptr<Board> board = Board::Current();
  if (board == nullptr || path == nullptr) return kNotOurs;
  const bool direct = IsDirect(*board, path, flags);
  const auto place =
      direct ? std::nullopt : FindPlace(*board, directory, path, (flags & O_NOFOLLOW) == 0);
  if (place && place->node.IsLink() && (flags & O_PATH) == 0) return -ELOOP;
  const bool only_place =
      place && (place->node.IsFolder() || (flags & (O_PATH | O_DIRECTORY)) != 0);
  if (only_place) return OpenPlace(board, *place, flags);
  const std::string found = place ? place->path : path;
  Device* device = board->Find(found);
  if (device == nullptr) {
    const bool makes = (flags & O_CREAT) != 0 && directory == AT_FDCWD && *path != '/';
    return makes && IsInEmptyFolder() ? -EACCES : kNotOurs;
  }
  const std::string name = device->Name();
  if (const int error = PlantedFault(name, "open").error; error != 0) return -error;
  auto [file, error] = device->Open(found, flags);
  if (file == nullptr) {
    Record(name, "open " + std::string(path) + " failed: " + ErrnoName(error));
    return -error;
  }
  file->SetFlags(flags & ~kOfTheOpening);
  return Install({board, std::move(file), name, found}, (flags & O_CLOEXEC) != 0);
}

namespace {

int OpenAny(int directory, const char* path, int flags, mode_t mode) {
  if (Board::PluggedIn()) {
    const int fd = InBoard(true, [=] { return OpenDevice(directory, path, flags); });
    if (fd != kNotOurs) return AsSystemCall(fd);
  }
  // real::Open is not a cancellation point.
  pthread_testcancel();
  return real::Open(directory, path, flags, mode);
}

ssize_t ReadAny(int fd, void* buffer, std::size_t size) {
  if (!IsBoardDescriptor(fd)) return real::Read(fd, buffer, size);
  return AsSystemCall(OnFile(fd, true, "read", [=](OpenFile& file, bool cut_short) {
    return file.Read(buffer, cut_short ? size / 2 : size);
  }));
}

ssize_t WriteAny(int fd, const void* buffer, std::size_t size) {
  if (!IsBoardDescriptor(fd)) return real::Write(fd, buffer, size);
  return AsSystemCall(OnFile(fd, true, "write", [=](OpenFile& file, bool cut_short) {
    return file.Write(buffer, cut_short ? size / 2 : size);
  }));
}

std::int64_t IoctlOnFile(int fd, unsigned long request, void* argument) {
  return InBoard(false, [=]() -> std::int64_t {
    const std::string name = IoctlName(request);
    return OnFile(fd, false, name.c_str(), [=](OpenFile& file, bool cut_short) {
      return cut_short ? IoctlCutShort(file, request, argument) : file.Ioctl(request, argument);
    });
  });
}

void* MmapAny(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset) {
  if ((flags & MAP_ANONYMOUS) != 0 || !IsBoardDescriptor(fd)) {
    return real::Mmap(hint, length, protection, flags, fd, offset);
  }
  const std::int64_t address = OnFile(fd, false, "mmap", [=](OpenFile& file, bool) {
    return file.Mmap(hint, length, protection, flags, offset);
  });
  if (address < 0 && address > -4096) {
    errno = static_cast<int>(-address);
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(address);
}

mode_t ModeArgument(int flags, va_list arguments) {
  const bool given = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  return given ? va_arg(arguments, mode_t) : 0;
}

}  // namespace
}  // namespace board

// The C library declares some of these with attributes (nonnull, throw()) that a definition
// may not repeat on every compiler version. Only the names matter.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(directory, path, flags, mode);
}

// Programs built with FORTIFY call these.
int __open_2(const char* path, int flags) { return board::OpenAny(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return board::OpenAny(AT_FDCWD, path, flags, 0); }
int __openat_2(int directory, const char* path, int flags) {
  return board::OpenAny(directory, path, flags, 0);
}
int __openat64_2(int directory, const char* path, int flags) {
  return board::OpenAny(directory, path, flags, 0);
}

ssize_t read(int fd, void* buffer, size_t size) { return board::ReadAny(fd, buffer, size); }

ssize_t __read_chk(int fd, void* buffer, size_t size, size_t room) {
  if (size > room) abort();
  return board::ReadAny(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) { return board::WriteAny(fd, buffer, size); }

int ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!board::IsBoardDescriptor(fd)) return board::real::Ioctl(fd, request, argument);
  // The kernel takes 32 bits. A program that keeps the request in an int passes more.
  const auto command = static_cast<unsigned>(request);
  return static_cast<int>(board::AsSystemCall(board::IoctlOnFile(fd, command, argument)));
}

void* mmap(void* hint, size_t length, int protection, int flags, int fd, off_t offset) {
  return board::MmapAny(hint, length, protection, flags, fd, offset);
}

void* mmap64(void* hint, size_t length, int protection, int flags, int fd, off64_t offset) {
  return board::MmapAny(hint, length, protection, flags, fd, offset);
}

int munmap(void* address, size_t length) {
  board::ForgetFpgaWindows(address, length);
  return board::real::Munmap(address, length);
}

}  // extern "C"
#pragma GCC visibility pop
