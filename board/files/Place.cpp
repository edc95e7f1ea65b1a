#include "files/Place.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <deque>
#include <functional>
#include <string_view>

#include "FileTable.h"
#include "RealCalls.h"

namespace board {
namespace {

constexpr int kMostLinks = 40;  // as in the kernel
constexpr off_t kPage = 4096;

std::string RealPathOf(int descriptor) {
  char target[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t size = real::Readlinkat(AT_FDCWD, link.c_str(), target, sizeof target);
  return size > 0 ? std::string(target, static_cast<std::size_t>(size)) : std::string();
}

std::string WorkingFolder() {
  char folder[PATH_MAX];
  return getcwd(folder, sizeof folder) == nullptr ? std::string() : folder;
}

std::string PathOf(int descriptor) {
  if (descriptor == AT_FDCWD) return WorkingFolder();
  return IsBoardDescriptor(descriptor) ? Lookup(descriptor).path : RealPathOf(descriptor);
}

bool MayBeOurs(std::string_view path) {
  return path.starts_with("/dev") || path.starts_with("/sys");
}

void Split(std::string_view path, std::deque<std::string>& parts) {
  std::deque<std::string> split;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0) split.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  parts.insert(parts.begin(), split.begin(), split.end());
}

// The path without dots and links of the board. Links of the kernel stay as they are.
std::string Follow(const FileTree& tree, const std::string& path, bool last_too) {
  std::deque<std::string> parts;
  Split(path, parts);
  std::string result;
  for (int links = 0; !parts.empty();) {
    const std::string part = std::move(parts.front());
    parts.pop_front();
    if (part == ".") continue;
    if (part == "..") {
      result.resize(result.empty() ? 0 : result.rfind('/'));
      continue;
    }
    const std::string next = result + '/' + part;
    const FileTree::Node* const node = tree.Find(next);
    const bool follow = node != nullptr && node->IsLink() && (last_too || !parts.empty());
    if (follow && ++links <= kMostLinks) {
      Split(node->target, parts);
      result.clear();
    } else {
      result = next;
    }
  }
  return result;
}

std::optional<Place> Find(const Board& board, std::string path, bool follow) {
  if (!MayBeOurs(path)) return std::nullopt;
  const FileTree tree = board.Files();
  const bool folder_wanted = path.ends_with('/');
  path = Follow(tree, path, follow || folder_wanted);
  const FileTree::Node* const node = tree.Find(path);
  if (node == nullptr || (folder_wanted && !node->IsFolder())) return std::nullopt;
  return Place{path, *node};
}

std::string Absolute(int directory, std::string_view path) {
  if (path.starts_with('/')) return std::string(path);
  return PathOf(directory) + '/' + std::string(path);
}

bool KernelHas(const std::string& path) {
  struct stat ignored {};
  return real::Fstatat(AT_FDCWD, path.c_str(), &ignored, 0) == 0;
}

}  // namespace

std::optional<Place> FindPlace(const Board& board, int directory, const char* path, bool follow) {
  if (path == nullptr || *path == '\0') return std::nullopt;
  auto place = Find(board, Absolute(directory, path), follow);
  if (place && place->node.IsFolder() && KernelHas(place->path)) return std::nullopt;
  return place;
}

std::optional<Place> FindFolder(const Board& board, int directory, const char* path) {
  if (path == nullptr || *path == '\0') return std::nullopt;
  auto place = Find(board, Absolute(directory, path), true);
  return place && place->node.IsFolder() ? place : std::nullopt;
}

std::optional<Place> FindFolder(const Board& board, int descriptor) {
  auto place = Find(board, PathOf(descriptor), true);
  return place && place->node.IsFolder() ? place : std::nullopt;
}

std::string AbsolutePath(const Board& board, const char* path) {
  if (*path == '/') return path;
  const std::string result = Follow(board.Files(), Absolute(AT_FDCWD, path), true);
  return result.empty() ? "/" : result;
}

std::optional<Place> PlaceOf(const Board& board, int descriptor) {
  const Entry entry = Lookup(descriptor);
  if (entry.file == nullptr) return std::nullopt;
  // The path has no links on its way, but a link may be what was opened.
  if (auto place = Find(board, entry.path, false)) return place;
  return Place{entry.path, {S_IFREG, 0, {}}};  // removed in the meantime
}

struct stat StatusOf(const Place& place) {
  struct stat status {};
  const FileTree::Node& node = place.node;
  status.st_dev = makedev(0, 5);
  status.st_ino = std::hash<std::string>{}(place.path) | 1;
  status.st_mode = node.mode;
  status.st_nlink = node.IsFolder() ? 2 : 1;
  // Whoever plugs the board in may do everything.
  status.st_uid = geteuid();
  status.st_gid = getegid();
  status.st_rdev = node.device;
  status.st_blksize = kPage;
  if (node.IsLink()) status.st_size = static_cast<off_t>(node.target.size());
  if (S_ISREG(node.mode)) status.st_size = kPage;
  return status;
}

ssize_t PlaceFile::Read(void*, std::size_t) { return folder_ ? -EISDIR : -EBADF; }

ssize_t PlaceFile::Write(const void*, std::size_t) { return -EBADF; }

}  // namespace board
