#include "InheritedFiles.h"

#include <dirent.h>
#include <fcntl.h>

#include <charconv>
#include <string_view>

#include "FileTable.h"
#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

constexpr std::string_view kEventfd = "anon_inode:[eventfd]";
constexpr unsigned kAccessBits = 2;

std::optional<unsigned> NumberIn(std::string_view text, int base) {
  unsigned number = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc{} && rest != text.data() ? std::optional(number) : std::nullopt;
}

// The count of a descriptor that is an eventfd.
std::optional<unsigned> CountOf(const std::string& fd) {
  constexpr std::string_view kLabel = "eventfd-count:";
  char text[256];
  ssize_t size = real::Readlinkat(AT_FDCWD, ("/proc/self/fd/" + fd).c_str(), text, sizeof text);
  if (size < 0 || std::string_view(text, static_cast<std::size_t>(size)) != kEventfd) return {};
  const PrivateDescriptor info(
      real::Open(AT_FDCWD, ("/proc/self/fdinfo/" + fd).c_str(), O_RDONLY | O_CLOEXEC, 0));
  size = info.Get() < 0 ? -1 : real::Read(info.Get(), text, sizeof text);
  std::string_view rest(text, size < 0 ? 0 : static_cast<std::size_t>(size));
  const std::size_t label = rest.find(kLabel);
  if (label == std::string_view::npos) return {};
  rest.remove_prefix(label + kLabel.size());
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  return NumberIn(rest, 16);
}

void OpenInherited(const Board& board, int fd, unsigned mark) {
  const FileTree files = board.Files();
  for (const std::string& path : files.Paths()) {
    const int flags = static_cast<int>(mark) & O_ACCMODE;
    if (MarkOf(path, flags) != mark) continue;
    const int opened = OpenDevice(AT_FDCWD, path.c_str(), flags);
    if (opened < 0 || opened == kNotOurs) return;
    DuplicateOnto(opened, fd, 0);
    Release(opened);
    return;
  }
}

}  // namespace

unsigned MarkOf(const std::string& path, int flags) {
  // FNV-1a, which is the same in every program.
  std::uint32_t hash = 2166136261;
  for (const char letter : path) hash = (hash ^ static_cast<std::uint8_t>(letter)) * 16777619;
  constexpr std::uint32_t kNeverZero = 1U << 31;
  return (hash | kNeverZero) >> kAccessBits << kAccessBits |
         static_cast<unsigned>(flags & O_ACCMODE);
}

void OpenInheritedFiles(const Board& board) {
  DIR* const folder = real::Opendir("/proc/self/fd");
  if (folder == nullptr) return;
  std::vector<std::pair<int, unsigned>> found;
  while (const dirent* entry = real::Readdir(folder)) {
    const auto fd = NumberIn(entry->d_name, 10);
    const auto mark = fd ? CountOf(entry->d_name) : std::nullopt;
    if (mark) found.emplace_back(static_cast<int>(*fd), *mark);
  }
  real::Closedir(folder);
  for (const auto& [fd, mark] : found) OpenInherited(board, fd, mark);
}

}  // namespace board
