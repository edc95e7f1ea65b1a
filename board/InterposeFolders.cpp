// Reading folders. The C library's own functions that read folders inside do not come by here, so
// those are here as well.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>

#include "Interpose.h"
#include "RealCalls.h"
#include "files/Place.h"

namespace board {
namespace {

// What stands behind a DIR where the board has something in the folder: all names, the kernel's
// first, as they were when it was opened.
struct Folder {
  int fd;
  std::vector<dirent> entries;
  std::size_t next = 0;
};

struct Folders {
  std::mutex mutex;
  std::set<const void*> open;
};

std::atomic<unsigned> open_folders{0};

Folders& TheFolders() {
  static Folders* const folders = new Folders;
  return *folders;
}

bool IsFolder(const void* folder) {
  if (open_folders == 0) return false;
  return InBoard(false, [=] {
    const std::lock_guard lock(TheFolders().mutex);
    return TheFolders().open.contains(folder);
  });
}

Folder& Ours(DIR* folder) { return *reinterpret_cast<Folder*>(folder); }

unsigned char TypeOf(mode_t mode) { return static_cast<unsigned char>((mode & S_IFMT) >> 12); }

dirent EntryOf(const std::string& name, unsigned char type, ino_t number) {
  dirent entry{};
  entry.d_ino = number;
  entry.d_type = type;
  entry.d_reclen = sizeof entry;
  entry.d_name[name.copy(entry.d_name, sizeof entry.d_name - 1)] = '\0';
  return entry;
}

// `kernels`: the kernel's folder of the same name, or null.
void Fill(Folder& folder, const Board& board, const Place& place, DIR* kernels) {
  std::set<std::string> known;
  if (kernels != nullptr) {
    real::Rewinddir(kernels);
    while (const dirent* const entry = real::Readdir(kernels)) {
      if (!known.insert(entry->d_name).second) continue;
      folder.entries.push_back(EntryOf(entry->d_name, entry->d_type, entry->d_ino));
    }
  }
  for (const char* const dots : {".", ".."}) {
    if (known.insert(dots).second) folder.entries.push_back(EntryOf(dots, DT_DIR, 1));
  }
  const FileTree tree = board.Files();
  for (const auto& [name, node] : tree.In(place.path)) {
    if (!known.insert(name).second) {
      // The board's device stands before the kernel's.
      const auto same = [&name = name](const dirent& entry) { return name == entry.d_name; };
      std::ranges::find_if(folder.entries, same)->d_type = TypeOf(node->mode);
      continue;
    }
    const ino_t number = StatusOf({place.path + '/' + name, *node}).st_ino;
    folder.entries.push_back(EntryOf(name, TypeOf(node->mode), number));
  }
}

// Null, with errno 0, if the board has nothing in it. Takes the descriptor over.
DIR* OpenFolder(int fd) {
  Folder* made = nullptr;
  InBoard(false, [fd, &made] {
    const std::shared_ptr<Board> board = Board::Current();
    const auto place = board == nullptr ? std::nullopt : FindFolder(*board, fd);
    if (!place) return 0;
    made = new Folder{fd, {}};
    const int copy = IsBoardDescriptor(fd) ? -1 : real::Open(fd, ".", O_RDONLY | O_DIRECTORY, 0);
    DIR* const kernels = copy < 0 ? nullptr : real::Fdopendir(copy);
    Fill(*made, *board, *place, kernels);
    if (kernels != nullptr) real::Closedir(kernels);
    const std::lock_guard lock(TheFolders().mutex);
    TheFolders().open.insert(made);
    ++open_folders;
    return 0;
  });
  return reinterpret_cast<DIR*>(made);
}

DIR* OpendirAny(const char* path) {
  if (!Board::PluggedIn()) return real::Opendir(path);
  const bool has = InBoard(false, [=] {
    const std::shared_ptr<Board> board = Board::Current();
    return board != nullptr && FindFolder(*board, AT_FDCWD, path).has_value();
  });
  if (!has) return real::Opendir(path);
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  if (DIR* const folder = OpenFolder(fd)) return folder;
  return real::Fdopendir(fd);
}

DIR* FdopendirAny(int fd) {
  if (!Board::PluggedIn()) return real::Fdopendir(fd);
  if (DIR* const folder = OpenFolder(fd)) return folder;
  if (!IsBoardDescriptor(fd)) return real::Fdopendir(fd);
  errno = ENOTDIR;
  return nullptr;
}

dirent* ReaddirAny(DIR* folder) {
  if (!IsFolder(folder)) return real::Readdir(folder);
  Folder& ours = Ours(folder);
  return ours.next < ours.entries.size() ? &ours.entries[ours.next++] : nullptr;
}

int ClosedirAny(DIR* folder) {
  if (!IsFolder(folder)) return real::Closedir(folder);
  const int fd = Ours(folder).fd;
  InBoard(false, [=] {
    const std::lock_guard lock(TheFolders().mutex);
    TheFolders().open.erase(folder);
    --open_folders;
    delete &Ours(folder);
    return 0;
  });
  return close(fd);
}

// As the C library does it, with the functions above.
int ScanAny(int directory, const char* path, dirent*** names, int (*wanted)(const dirent*),
            int (*compare)(const dirent**, const dirent**)) {
  const int fd = openat(directory, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return -1;
  DIR* const folder = fdopendir(fd);
  if (folder == nullptr) {
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
  }
  dirent** list = nullptr;
  std::size_t count = 0;
  while (const dirent* const entry = readdir(folder)) {
    if (wanted != nullptr && wanted(entry) == 0) continue;
    auto* const copy = static_cast<dirent*>(malloc(sizeof(dirent)));
    auto** const longer = static_cast<dirent**>(realloc(list, (count + 1) * sizeof *list));
    if (longer != nullptr) list = longer;
    if (copy == nullptr || longer == nullptr) {
      free(copy);
      while (count > 0) free(list[--count]);
      free(list);
      closedir(folder);
      errno = ENOMEM;
      return -1;
    }
    std::memcpy(copy, entry, std::min<std::size_t>(entry->d_reclen, sizeof *copy));
    list[count++] = copy;
  }
  closedir(folder);
  if (compare != nullptr && count > 1) {
    qsort(list, count, sizeof *list, reinterpret_cast<int (*)(const void*, const void*)>(compare));
  }
  *names = list;
  return static_cast<int>(count);
}

// The C library asks these functions if it is told to.
int GlobAny(const char* pattern, int flags, int (*error)(const char*, int), glob_t* found) {
  if (!Board::PluggedIn() || (flags & GLOB_ALTDIRFUNC) != 0) {
    return real::Glob(pattern, flags, error, found);
  }
  found->gl_opendir = [](const char* path) -> void* { return opendir(path); };
  found->gl_readdir = [](void* folder) { return readdir(static_cast<DIR*>(folder)); };
  found->gl_closedir = [](void* folder) { closedir(static_cast<DIR*>(folder)); };
  found->gl_stat = [](const char* path, struct stat* status) { return stat(path, status); };
  found->gl_lstat = [](const char* path, struct stat* status) { return lstat(path, status); };
  return real::Glob(pattern, flags | GLOB_ALTDIRFUNC, error, found);
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

DIR* opendir(const char* path) { return board::OpendirAny(path); }
DIR* fdopendir(int fd) { return board::FdopendirAny(fd); }
dirent* readdir(DIR* folder) { return board::ReaddirAny(folder); }
int closedir(DIR* folder) { return board::ClosedirAny(folder); }
void rewinddir(DIR* folder) {
  if (!board::IsFolder(folder)) return board::real::Rewinddir(folder);
  board::Ours(folder).next = 0;
}
long telldir(DIR* folder) {
  if (!board::IsFolder(folder)) return board::real::Telldir(folder);
  return static_cast<long>(board::Ours(folder).next);
}
void seekdir(DIR* folder, long place) {
  if (!board::IsFolder(folder)) return board::real::Seekdir(folder, place);
  board::Ours(folder).next = static_cast<std::size_t>(place);
}
int dirfd(DIR* folder) {
  return board::IsFolder(folder) ? board::Ours(folder).fd : board::real::Dirfd(folder);
}
int scandir(const char* path, dirent*** names, int (*wanted)(const dirent*),
            int (*compare)(const dirent**, const dirent**)) {
  return board::ScanAny(AT_FDCWD, path, names, wanted, compare);
}
int scandirat(int directory, const char* path, dirent*** names, int (*wanted)(const dirent*),
              int (*compare)(const dirent**, const dirent**)) {
  return board::ScanAny(directory, path, names, wanted, compare);
}
int glob(const char* pattern, int flags, int (*error)(const char*, int), glob_t* found) {
  return board::GlobAny(pattern, flags, error, found);
}

// The two kinds of entry are the same on 64-bit machines.
static_assert(sizeof(dirent) == sizeof(dirent64) && sizeof(glob_t) == sizeof(glob64_t));
dirent64* readdir64(DIR* folder) { return reinterpret_cast<dirent64*>(readdir(folder)); }
int scandir64(const char* path, dirent64*** names, int (*wanted)(const dirent64*),
              int (*compare)(const dirent64**, const dirent64**)) {
  return scandirat64(AT_FDCWD, path, names, wanted, compare);
}
int scandirat64(int directory, const char* path, dirent64*** names, int (*wanted)(const dirent64*),
                int (*compare)(const dirent64**, const dirent64**)) {
  return board::ScanAny(directory, path, reinterpret_cast<dirent***>(names),
                        reinterpret_cast<int (*)(const dirent*)>(wanted),
                        reinterpret_cast<int (*)(const dirent**, const dirent**)>(compare));
}
int glob64(const char* pattern, int flags, int (*error)(const char*, int), glob64_t* found) {
  return board::GlobAny(pattern, flags, error, reinterpret_cast<glob_t*>(found));
}

}  // extern "C"
#pragma GCC visibility pop
