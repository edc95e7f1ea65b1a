// What a path or a descriptor is: its type and numbers, rights, and where a link leads.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Interpose.h"
#include "RealCalls.h"
#include "files/Place.h"

namespace board {
namespace {

// Runs a call on the place that a path names. kNotOurs: it is the kernel's.
template <typename Call>
int OnPlace(int directory, const char* path, int flags, Call call) {
  if (!Board::PluggedIn()) return kNotOurs;
  return InBoard(false, [=]() -> int {
    const std::shared_ptr<Board> board = Board::Current();
    if (board == nullptr) return kNotOurs;
    const bool itself = path == nullptr || *path == '\0';
    if (itself && !IsBoardDescriptor(directory)) return kNotOurs;
    const auto place = itself
                           ? PlaceOf(*board, directory)
                           : FindPlace(*board, directory, path, (flags & AT_SYMLINK_NOFOLLOW) == 0);
    return place ? call(*place) : kNotOurs;
  });
}

int StatAny(int directory, const char* path, struct stat* status, int flags) {
  const int result = OnPlace(directory, path, flags, [=](const Place& place) {
    *status = StatusOf(place);
    return 0;
  });
  return result == kNotOurs ? real::Fstatat(directory, path, status, flags) : AsSystemCall(result);
}

struct statx ExtendedStatusOf(const Place& place) {
  const struct stat status = StatusOf(place);
  struct statx extended {};
  extended.stx_mask = STATX_BASIC_STATS;
  extended.stx_blksize = static_cast<__u32>(status.st_blksize);
  extended.stx_nlink = static_cast<__u32>(status.st_nlink);
  extended.stx_uid = status.st_uid;
  extended.stx_gid = status.st_gid;
  extended.stx_mode = static_cast<__u16>(status.st_mode);
  extended.stx_ino = status.st_ino;
  extended.stx_size = static_cast<__u64>(status.st_size);
  extended.stx_rdev_major = major(status.st_rdev);
  extended.stx_rdev_minor = minor(status.st_rdev);
  extended.stx_dev_major = major(status.st_dev);
  extended.stx_dev_minor = minor(status.st_dev);
  return extended;
}

int StatxAny(int directory, const char* path, int flags, unsigned mask, struct statx* status) {
  const int result = OnPlace(directory, path, flags, [=](const Place& place) {
    *status = ExtendedStatusOf(place);
    return 0;
  });
  return result == kNotOurs ? real::Statx(directory, path, flags, mask, status)
                            : AsSystemCall(result);
}

// Nothing of the board can be executed, and its folders can be entered.
int AccessAny(int directory, const char* path, int mode, int flags) {
  const int result = OnPlace(directory, path, flags, [=](const Place& place) {
    const mode_t rights = place.node.mode;
    const bool denied = ((mode & R_OK) != 0 && (rights & 0444) == 0) ||
                        ((mode & W_OK) != 0 && (rights & 0222) == 0) ||
                        ((mode & X_OK) != 0 && (rights & 0111) == 0);
    return denied ? -EACCES : 0;
  });
  return result == kNotOurs ? real::Faccessat(directory, path, mode, flags) : AsSystemCall(result);
}

ssize_t ReadlinkAny(int directory, const char* path, char* target, std::size_t size) {
  const int result = OnPlace(directory, path, AT_SYMLINK_NOFOLLOW, [=](const Place& place) {
    if (!place.node.IsLink()) return -EINVAL;
    const std::size_t length = std::min(size, place.node.target.size());
    std::memcpy(target, place.node.target.data(), length);
    return static_cast<int>(length);
  });
  return result == kNotOurs ? real::Readlinkat(directory, path, target, size)
                            : AsSystemCall(result);
}

char* RealpathAny(const char* path, char* resolved) {
  char found[PATH_MAX];
  const int length = OnPlace(AT_FDCWD, path, 0, [&found](const Place& place) {
    const std::size_t size = place.path.copy(found, sizeof found - 1);
    found[size] = '\0';
    return static_cast<int>(size);
  });
  if (length == kNotOurs || length == 0) return real::Realpath(path, resolved);
  return resolved == nullptr ? strdup(found) : strcpy(resolved, found);
}

// Files of the board have no extended attributes, which `ls -l` wants to know.
template <typename... Arguments>
ssize_t AttributeAny(long call, const char* path, int flags, Arguments... arguments) {
  const int result = OnPlace(AT_FDCWD, path, flags, [](const Place&) { return -ENOTSUP; });
  return result == kNotOurs ? syscall(call, path, arguments...) : AsSystemCall<ssize_t>(result);
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int stat(const char* path, struct stat* status) {
  return board::StatAny(AT_FDCWD, path, status, 0);
}
int lstat(const char* path, struct stat* status) {
  return board::StatAny(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
int fstat(int fd, struct stat* status) { return board::StatAny(fd, "", status, AT_EMPTY_PATH); }
int fstatat(int directory, const char* path, struct stat* status, int flags) {
  return board::StatAny(directory, path, status, flags);
}
int statx(int directory, const char* path, int flags, unsigned mask, struct statx* status) {
  return board::StatxAny(directory, path, flags, mask, status);
}

// The two kinds of status are the same on 64-bit machines.
static_assert(sizeof(struct stat) == sizeof(struct stat64));
int stat64(const char* path, struct stat64* status) {
  return stat(path, reinterpret_cast<struct stat*>(status));
}
int lstat64(const char* path, struct stat64* status) {
  return lstat(path, reinterpret_cast<struct stat*>(status));
}
int fstat64(int fd, struct stat64* status) {
  return fstat(fd, reinterpret_cast<struct stat*>(status));
}
int fstatat64(int directory, const char* path, struct stat64* status, int flags) {
  return fstatat(directory, path, reinterpret_cast<struct stat*>(status), flags);
}

// What programs call that were built before version 2.33 of the C library.
int __xstat(int, const char* path, struct stat* status) { return stat(path, status); }
int __xstat64(int, const char* path, struct stat64* status) { return stat64(path, status); }
int __lxstat(int, const char* path, struct stat* status) { return lstat(path, status); }
int __lxstat64(int, const char* path, struct stat64* status) { return lstat64(path, status); }
int __fxstat(int, int fd, struct stat* status) { return fstat(fd, status); }
int __fxstat64(int, int fd, struct stat64* status) { return fstat64(fd, status); }
int __fxstatat(int, int directory, const char* path, struct stat* status, int flags) {
  return fstatat(directory, path, status, flags);
}
int __fxstatat64(int, int directory, const char* path, struct stat64* status, int flags) {
  return fstatat64(directory, path, status, flags);
}

int access(const char* path, int mode) { return board::AccessAny(AT_FDCWD, path, mode, 0); }
int faccessat(int directory, const char* path, int mode, int flags) {
  return board::AccessAny(directory, path, mode, flags);
}
int euidaccess(const char* path, int mode) {
  return board::AccessAny(AT_FDCWD, path, mode, AT_EACCESS);
}
int eaccess(const char* path, int mode) { return euidaccess(path, mode); }

ssize_t readlink(const char* path, char* target, size_t size) {
  return board::ReadlinkAny(AT_FDCWD, path, target, size);
}
ssize_t readlinkat(int directory, const char* path, char* target, size_t size) {
  return board::ReadlinkAny(directory, path, target, size);
}
ssize_t __readlink_chk(const char* path, char* target, size_t size, size_t room) {
  if (size > room) abort();
  return readlink(path, target, size);
}
ssize_t __readlinkat_chk(int directory, const char* path, char* target, size_t size, size_t room) {
  if (size > room) abort();
  return readlinkat(directory, path, target, size);
}
char* realpath(const char* path, char* resolved) { return board::RealpathAny(path, resolved); }
char* __realpath_chk(const char* path, char* resolved, size_t room) {
  if (room < PATH_MAX) abort();
  return realpath(path, resolved);
}
char* canonicalize_file_name(const char* path) { return realpath(path, nullptr); }

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) {
  return board::AttributeAny(SYS_getxattr, path, 0, name, value, size);
}
ssize_t lgetxattr(const char* path, const char* name, void* value, size_t size) {
  return board::AttributeAny(SYS_lgetxattr, path, AT_SYMLINK_NOFOLLOW, name, value, size);
}
ssize_t listxattr(const char* path, char* list, size_t size) {
  return board::AttributeAny(SYS_listxattr, path, 0, list, size);
}
ssize_t llistxattr(const char* path, char* list, size_t size) {
  return board::AttributeAny(SYS_llistxattr, path, AT_SYMLINK_NOFOLLOW, list, size);
}

}  // extern "C"
#pragma GCC visibility pop
