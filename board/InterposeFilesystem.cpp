// What filesystem a file is on. Programs ask whether a path below /sys is really the kernel's.

#include <linux/magic.h>
#include <sys/vfs.h>

#include "Interpose.h"
#include "RealCalls.h"
#include "files/Place.h"

namespace board {
namespace {

struct statfs FilesystemOf(const Place& place) {
  constexpr long kPage = 4096;
  constexpr long kLongestName = 255;
  struct statfs status {};
  status.f_type = place.path.starts_with("/sys") ? SYSFS_MAGIC : TMPFS_MAGIC;
  status.f_bsize = kPage;
  status.f_frsize = kPage;
  status.f_namelen = kLongestName;
  return status;
}

int StatfsAny(const char* path, struct statfs* status) {
  const int result = !Board::PluggedIn() ? kNotOurs : InBoard(false, [=]() -> int {
    const std::shared_ptr<Board> board = Board::Current();
    const auto place = board == nullptr ? std::nullopt : FindPlace(*board, AT_FDCWD, path, true);
    if (!place) return kNotOurs;
    *status = FilesystemOf(*place);
    return 0;
  });
  return result == kNotOurs ? real::Statfs(path, status) : AsSystemCall(result);
}

int FstatfsAny(int fd, struct statfs* status) {
  if (!IsBoardDescriptor(fd)) return real::Fstatfs(fd, status);
  return AsSystemCall(InBoard(false, [=]() -> int {
    const std::shared_ptr<Board> board = Board::Current();
    const auto place = board == nullptr ? std::nullopt : PlaceOf(*board, fd);
    if (!place) return -ENODEV;
    *status = FilesystemOf(*place);
    return 0;
  }));
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int statfs(const char* path, struct statfs* status) { return board::StatfsAny(path, status); }
int fstatfs(int fd, struct statfs* status) { return board::FstatfsAny(fd, status); }

// The two kinds of status are the same on 64-bit machines.
static_assert(sizeof(struct statfs) == sizeof(struct statfs64));
int statfs64(const char* path, struct statfs64* status) {
  return statfs(path, reinterpret_cast<struct statfs*>(status));
}
int fstatfs64(int fd, struct statfs64* status) {
  return fstatfs(fd, reinterpret_cast<struct statfs*>(status));
}

}  // extern "C"
#pragma GCC visibility pop
