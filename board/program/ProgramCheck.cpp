#include "program/ProgramCheck.h"

#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

// Of the file that this code is in, which is of the same machine as the board. The linker's name.
extern "C" const ElfW(Ehdr) __ehdr_start __attribute__((visibility("hidden")));

namespace board {
namespace {

// As many scripts as the kernel follows.
constexpr int kMostInterpreters = 5;
constexpr std::size_t kFirstLine = 256;  // what the kernel reads of it
constexpr const char* kUsualPath = "/bin:/usr/bin";
// The C library runs with it what the kernel does not know.
constexpr std::string_view kShell = "/bin/sh";
constexpr std::string_view kBlanks = " \t";

// File names of the GNU C library's loader, on all machines, begin so.
constexpr std::array<std::string_view, 4> kLoaders{"ld-linux", "ld.so", "ld64.so", "ld-2."};

// Indexed by Obstacle.
constexpr std::array kTexts{
    ObstacleText{"has the board", ""},
    ObstacleText{"is statically linked", "link it dynamically"},
    ObstacleText{"is built for another machine", "build it for this one"},
    ObstacleText{"has another loader than the GNU C library's", "build it with that library"},
    ObstacleText{"runs with the rights of another user or group",
                 "run a copy that is not set-user-ID or set-group-ID, as that user if need be"},
    ObstacleText{"has file capabilities", "run a copy of it; cp leaves them out"},
    ObstacleText{"cannot be read, so whether it can have the board is not known",
                 "make it readable"},
};

// An open file, closed at the end of the scope.
class File {
 public:
  File(int directory, const char* path)
      : number_(static_cast<int>(
            syscall(SYS_openat, directory, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0))) {}
  ~File() {
    if (IsOpen()) syscall(SYS_close, number_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  bool IsOpen() const { return number_ >= 0; }
  int number() const { return number_; }
  std::size_t Read(void* to, std::size_t size, std::size_t offset) const {
    const long bytes = syscall(SYS_pread64, number_, to, size, offset);
    return bytes < 0 ? 0 : static_cast<std::size_t>(bytes);
  }
  template <typename Record>
  bool Read(Record& record, std::size_t offset) const {
    return Read(&record, sizeof record, offset) == sizeof record;
  }

 private:
  const int number_;
};

bool Exists(int directory, const char* path, struct stat& status) {
  return syscall(SYS_newfstatat, directory, path, &status, 0) == 0;
}

bool MayRun(int directory, const char* path) {
  return syscall(SYS_faccessat, directory, path, X_OK) == 0;
}

// False if it does not fit.
bool Join(std::string_view folder, std::string_view name, PathBuffer& path) {
  const std::size_t slash = folder.empty() ? 0 : 1;
  if (folder.size() + slash + name.size() >= path.size()) return false;
  char* end = std::copy(folder.begin(), folder.end(), path.data());
  if (slash > 0) *end++ = '/';
  *std::copy(name.begin(), name.end(), end) = '\0';
  return true;
}

// Takes the first word off a line.
std::string_view TakeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

// The program that `env` is asked for: behind its options and variables.
std::string_view WantedOfEnv(std::string_view line) {
  for (;;) {
    std::string_view word = TakeWord(line);
    if (word.starts_with("-S") && word.size() > 2) word.remove_prefix(2);
    const bool other = word.starts_with('-') || word.find('=') != std::string_view::npos;
    if (!other) return word;
  }
}

bool IsLoader(std::string_view path) {
  const std::string_view name = FileName(path);
  return std::any_of(kLoaders.begin(), kLoaders.end(),
                     [=](std::string_view start) { return name.starts_with(start); });
}

// Also by the name of what a link leads to.
bool IsLoader(const char* path, const File& file) {
  if (IsLoader(path)) return true;
  std::array<char, kFirstLine> target{};
  const long size = syscall(SYS_readlinkat, AT_FDCWD, DescriptorPath(file.number()).text(),
                            target.data(), target.size());
  return size > 0 && IsLoader({target.data(), static_cast<std::size_t>(size)});
}

// A program that the kernel gives more rights does not take libraries from its user.
Obstacle RightsOf(const File& file, const struct stat& status) {
  struct statfs system {};
  constexpr long kNoSetUserId = 2;  // ST_NOSUID
  const bool ignored =
      prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ||
      (syscall(SYS_fstatfs, file.number(), &system) == 0 && (system.f_flags & kNoSetUserId) != 0);
  constexpr mode_t kSetGroup = S_ISGID | S_IXGRP;
  const bool sets_user = !ignored && (status.st_mode & S_ISUID) != 0;
  const bool sets_group = !ignored && (status.st_mode & kSetGroup) == kSetGroup;
  const uid_t user = sets_user ? status.st_uid : geteuid();
  const gid_t group = sets_group ? status.st_gid : getegid();
  if (user != getuid() || group != getgid()) return Obstacle::kOtherRights;
  // Root has all of them anyway.
  const bool capable = !ignored && getuid() != 0 &&
                       syscall(SYS_fgetxattr, file.number(), "security.capability", nullptr, 0) > 0;
  return capable ? Obstacle::kCapabilities : Obstacle::kNone;
}

Obstacle LoaderOf(const char* path, const File& file, const ElfW(Ehdr) & header) {
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    ElfW(Phdr) part;
    if (!file.Read(part, header.e_phoff + i * sizeof part)) return Obstacle::kNone;
    if (part.p_type != PT_INTERP) continue;
    std::array<char, kFirstLine> loader{};
    file.Read(loader.data(), std::min<std::size_t>(part.p_filesz, loader.size() - 1),
              part.p_offset);
    return IsLoader(loader.data()) ? Obstacle::kNone : Obstacle::kOtherLoader;
  }
  return IsLoader(path, file) ? Obstacle::kNone : Obstacle::kStatic;
}

Obstacle ObstacleOf(const char* path, const File& file, const struct stat& status) {
  ElfW(Ehdr) header;
  if (!file.Read(header, 0)) return Obstacle::kNone;
  const bool same =
      std::equal(header.e_ident, header.e_ident + EI_DATA + 1, __ehdr_start.e_ident) &&
      header.e_machine == __ehdr_start.e_machine;
  if (!same) return Obstacle::kOtherMachine;
  const Obstacle obstacle = LoaderOf(path, file, header);
  return obstacle == Obstacle::kNone ? RightsOf(file, status) : obstacle;
}

// Makes `path` that of the interpreter. False if there is none.
bool FindInterpreter(std::string_view start, const char* search_path, PathBuffer& path) {
  if (!start.starts_with("#!")) return Join({}, kShell, path);
  std::string_view line = start.substr(2, start.find('\n') - 2);
  const std::string_view interpreter = TakeWord(line);
  if (FileName(interpreter) != "env") return Join({}, interpreter, path);
  return FindProgramFile(WantedOfEnv(line), search_path, path) == 0;
}

}  // namespace

ObstacleText TextOf(Obstacle obstacle) { return kTexts[static_cast<std::size_t>(obstacle)]; }

DescriptorPath::DescriptorPath(int file) {
  char* digit = text_.data() + strlen(text_.data());
  for (int unit = 1'000'000'000; unit > 0; unit /= 10) {
    if (unit == 1 || file >= unit) *digit++ = static_cast<char>('0' + file / unit % 10);
  }
}

std::string_view FileName(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

int FindProgramFile(std::string_view name, const char* search_path, PathBuffer& found) {
  if (name.empty()) return ENOENT;
  if (name.find('/') != std::string_view::npos) return Join({}, name, found) ? 0 : ENAMETOOLONG;
  int error = ENOENT;
  std::string_view folders = search_path != nullptr ? search_path : kUsualPath;
  for (bool more = true; more;) {
    const std::size_t colon = folders.find(':');
    struct stat status {};
    if (Join(folders.substr(0, colon), name, found) && Exists(AT_FDCWD, found.data(), status)) {
      if (S_ISREG(status.st_mode) && MayRun(AT_FDCWD, found.data())) return 0;
      error = EACCES;
    }
    more = colon != std::string_view::npos;
    folders.remove_prefix(more ? colon + 1 : 0);
  }
  return error;
}

void CheckProgram(int directory, const char* path, const char* search_path, CheckedProgram& found) {
  found = {};
  for (int scripts = 0; scripts <= kMostInterpreters; ++scripts) {
    struct stat status {};
    const bool runs =
        Exists(directory, path, status) && S_ISREG(status.st_mode) && MayRun(directory, path);
    // A script without its interpreter does not run.
    found.runs = runs;
    if (!runs) return;
    const File file(directory, path);
    if (!file.IsOpen()) {
      found.obstacle = Obstacle::kUnreadable;
      return;
    }
    std::array<char, kFirstLine> text{};
    const std::string_view start(text.data(), file.Read(text.data(), text.size(), 0));
    if (start.starts_with(ELFMAG)) {
      found.obstacle = ObstacleOf(path, file, status);
      return;
    }
    if (!FindInterpreter(start, search_path, found.interpreter)) return;
    found.is_interpreter = true;
    directory = AT_FDCWD;
    path = found.interpreter.data();
  }
}

}  // namespace board
