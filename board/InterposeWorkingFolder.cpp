// The working folder. The kernel cannot go into a folder that only the board has, so it goes into
// an empty one of the same name, below a folder that `tessaline-board run` has named. So programs
// that are started there are there, too.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Interpose.h"
#include "RealCalls.h"
#include "files/Place.h"

namespace board {
namespace {

// Where the empty folders are; empty: nowhere.
std::string_view Root() {
  const char* const root = std::getenv("TESSALINE_BOARD_FOLDERS");
  return root == nullptr ? std::string_view() : root;
}

bool IsEmptyFolder(std::string_view path) {
  const std::string_view root = Root();
  return !root.empty() && path.starts_with(root) && path.substr(root.size()).starts_with('/');
}

int EnterEmpty(const std::string& path) {
  const std::string root(Root());
  constexpr mode_t kOnlyOurs = 0700;
  if (mkdir(root.c_str(), kOnlyOurs) != 0 && errno != EEXIST) return -errno;
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string folder = root + path.substr(0, end);
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return -errno;
    if (end == path.npos) break;
  }
  return syscall(SYS_chdir, (root + path).c_str()) == 0 ? 0 : -errno;
}

int ChangeFolder(const char* path) {
  return InBoard(false, [=]() -> int {
    const std::shared_ptr<Board> board = Board::Current();
    if (board == nullptr || *path == '\0') return kNotOurs;
    if (const auto place = FindPlace(*board, AT_FDCWD, path, true)) {
      return place->node.IsFolder() ? EnterEmpty(place->path) : -ENOTDIR;
    }
    // From an empty folder the kernel would go elsewhere.
    if (!IsInEmptyFolder()) return kNotOurs;
    const std::string absolute = AbsolutePath(*board, path);
    return syscall(SYS_chdir, absolute.c_str()) == 0 ? 0 : -errno;
  });
}

int ChangeFolderAny(const char* path) {
  if (!Board::PluggedIn() || Root().empty() || path == nullptr) {
    return static_cast<int>(syscall(SYS_chdir, path));
  }
  const int result = ChangeFolder(path);
  return result == kNotOurs ? static_cast<int>(syscall(SYS_chdir, path)) : AsSystemCall(result);
}

int ChangeFolderTo(int fd) {
  if (!IsBoardDescriptor(fd)) return static_cast<int>(syscall(SYS_fchdir, fd));
  if (Root().empty()) return AsSystemCall(-ENOENT);
  return AsSystemCall(InBoard(false, [=] {
    const Entry entry = Lookup(fd);
    const std::shared_ptr<Board> board = Board::Current();
    const auto place = board == nullptr ? std::nullopt : PlaceOf(*board, fd);
    return place && place->node.IsFolder() ? EnterEmpty(entry.path) : -ENOTDIR;
  }));
}

char* WorkingFolder(char* buffer, std::size_t size) {
  char* const folder = real::Getcwd(buffer, size);
  if (folder == nullptr || !IsEmptyFolder(folder)) return folder;
  const std::size_t root = Root().size();
  std::memmove(folder, folder + root, std::strlen(folder) - root + 1);
  return folder;
}

char* WorkingFolderAsTheShellCallsIt() {
  char folder[PATH_MAX];
  if (real::Getcwd(folder, sizeof folder) != nullptr && IsEmptyFolder(folder)) {
    return WorkingFolder(nullptr, 0);
  }
  return real::GetCurrentDirName();
}

}  // namespace

bool IsInEmptyFolder() {
  char folder[PATH_MAX];
  return real::Getcwd(folder, sizeof folder) != nullptr && IsEmptyFolder(folder);
}

}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int chdir(const char* path) { return board::ChangeFolderAny(path); }
int fchdir(int fd) { return board::ChangeFolderTo(fd); }

char* getcwd(char* buffer, size_t size) { return board::WorkingFolder(buffer, size); }
char* __getcwd_chk(char* buffer, size_t size, size_t room) {
  if (size > room) abort();
  return board::WorkingFolder(buffer, size);
}
char* get_current_dir_name() { return board::WorkingFolderAsTheShellCallsIt(); }

}  // extern "C"
#pragma GCC visibility pop
