// Programs that a program on the board starts. One that would not have the board says so, and with
// TESSALINE_BOARD_STRICT it is not started.
//
// The caller may be the child of a vfork, whose memory is its parent's, or have a small stack. So
// nothing here allocates, and only the transcript of the process itself uses the board.

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "Interpose.h"
#include "RealCalls.h"
#include "TranscriptFile.h"
#include "program/ProgramCheck.h"

namespace board {
namespace {

constexpr std::string_view kModel = "TESSALINE_BOARD=";
constexpr std::string_view kPreload = "LD_PRELOAD=";
constexpr std::string_view kLibrary = "libtessaline-board.so";

// Whether this process has the board because of its environment, as its children then should.
// Otherwise it was linked with it.
struct Watch {
  bool on = false;
  bool strict = false;
  const char* library = nullptr;  // as the environment has it
};
constinit Watch watch;

// A variable's value; null if it is not there.
const char* ValueOf(std::string_view variable, char* const* environment) {
  for (; environment != nullptr && *environment != nullptr; ++environment) {
    if (std::string_view(*environment).starts_with(variable)) {
      return *environment + variable.size();
    }
  }
  return nullptr;
}

bool HasText(const char* value) { return value != nullptr && *value != '\0'; }

bool IsSameFile(const char* a, const char* b) {
  struct stat first {};
  struct stat second {};
  return real::Fstatat(AT_FDCWD, a, &first, 0) == 0 &&
         real::Fstatat(AT_FDCWD, b, &second, 0) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

// By its name, or that of the file that a link such as /proc/PID/fd/3 leads to.
bool IsBoard(std::string_view entry) {
  if (entry == watch.library || FileName(entry).starts_with(kLibrary)) return true;
  PathBuffer path{};
  if (entry.empty() || entry.size() >= path.size()) return false;
  std::copy(entry.begin(), entry.end(), path.begin());
  if (IsSameFile(path.data(), watch.library)) return true;
  PathBuffer target{};
  const ssize_t size = real::Readlinkat(AT_FDCWD, path.data(), target.data(), target.size());
  return size > 0 &&
         FileName({target.data(), static_cast<std::size_t>(size)}).starts_with(kLibrary);
}

// Whether the board's library is in a value of LD_PRELOAD.
bool Preloads(const char* value) {
  constexpr std::string_view kSeparators = ": ";
  std::string_view rest = value == nullptr ? "" : value;
  while (!rest.empty()) {
    const std::string_view entry = rest.substr(0, rest.find_first_of(kSeparators));
    if (IsBoard(entry)) return true;
    rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
  }
  return false;
}

__attribute__((constructor)) void SetUpWatch() {
  Dl_info self{};
  if (dladdr(&watch, &self) == 0) return;
  watch.library = self.dli_fname;
  watch.on = HasText(ValueOf(kModel, environ)) && Preloads(ValueOf(kPreload, environ));
  watch.strict = HasText(ValueOf("TESSALINE_BOARD_STRICT=", environ));
}

// One line for standard error, written at once. What does not fit is left out.
class Line {
 public:
  Line& operator<<(std::string_view text) {
    const std::size_t size = std::min(text.size(), text_.size() - 1 - size_);
    std::copy_n(text.begin(), size, text_.begin() + size_);
    size_ += size;
    return *this;
  }
  void Print() {
    text_[size_++] = '\n';
    // A plain call: write() is a cancellation point.
    syscall(SYS_write, STDERR_FILENO, text_.data(), size_);
  }

 private:
  std::array<char, 1024> text_;
  std::size_t size_ = 0;
};

void Say(const char* program, const CheckedProgram& found, const char* lost_variable) {
  Line line;
  line << "tessaline-board: " << program
       << (watch.strict ? " was not started without the virtual board: "
                        : " runs without the virtual board: ");
  if (found.obstacle == Obstacle::kNone) {
    line << lost_variable << " is not in its environment";
  } else if (found.is_interpreter) {
    line << "its interpreter " << found.interpreter.data() << " " << TextOf(found.obstacle).what;
  } else {
    line << "it " << TextOf(found.obstacle).what;
  }
  line.Print();
}

// Returns whether the program may be started. It is said to be `program`.
__attribute__((noinline)) bool Allow(int directory, const char* path, const char* program,
                                     char* const* environment) {
  const int error = errno;
  const char* const model = ValueOf(kModel, environment);
  // An empty value is on purpose.
  if (model != nullptr && *model == '\0') return true;
  CheckedProgram found;
  CheckProgram(directory, path, getenv("PATH"), found);
  const char* lost_variable = nullptr;
  if (!Preloads(ValueOf(kPreload, environment))) lost_variable = "LD_PRELOAD";
  if (model == nullptr) lost_variable = "TESSALINE_BOARD";
  const bool without = found.obstacle != Obstacle::kNone || lost_variable != nullptr;
  if (found.runs && without) Say(program, found, lost_variable);
  errno = error;
  return !found.runs || !without || !watch.strict;
}

bool AllowFile(const char* path, char* const* environment) {
  return !watch.on || path == nullptr || Allow(AT_FDCWD, path, path, environment);
}

// What execvp would find.
__attribute__((noinline)) bool AllowFound(const char* name, char* const* environment) {
  if (!watch.on || name == nullptr) return true;
  PathBuffer path{};
  return FindProgramFile(name, getenv("PATH"), path) != 0 ||
         Allow(AT_FDCWD, path.data(), path.data(), environment);
}

bool AllowOpen(int file, char* const* environment) {
  if (!watch.on || file < 0) return true;
  const DescriptorPath path(file);
  return Allow(AT_FDCWD, path.text(), path.text(), environment);
}

bool AllowAt(int directory, const char* path, char* const* environment, int flags) {
  if (!watch.on || path == nullptr) return true;
  if (*path == '\0' && (flags & AT_EMPTY_PATH) != 0) return AllowOpen(directory, environment);
  return Allow(directory, path, path, environment);
}

// Nothing of this process would write its transcript later.
void WriteTranscriptNow() {
  if (!HasTranscriptFile()) return;
  InBoard(false, [] {
    WriteTranscriptFile();
    return 0;
  });
}

template <typename Start>
int Exec(bool allowed, Start start) {
  if (!allowed) {
    errno = EACCES;
    return -1;
  }
  WriteTranscriptNow();
  return start();
}

int Execute(const char* path, char* const* words, char* const* environment) {
  return Exec(AllowFile(path, environment), [=] { return real::Execve(path, words, environment); });
}

int ExecuteFound(const char* name, char* const* words, char* const* environment) {
  return Exec(AllowFound(name, environment),
              [=] { return real::Execvpe(name, words, environment); });
}

// The words of a call with a variable number of them, up to the null pointer behind them.
std::size_t CountWords(const char* first, va_list words) {
  std::size_t count = 0;
  for (const char* word = first; word != nullptr; word = va_arg(words, const char*)) ++count;
  return count;
}

void CopyWords(const char* first, va_list words, char** copy) {
  for (const char* word = first; word != nullptr; word = va_arg(words, const char*)) {
    *copy++ = const_cast<char*>(word);
  }
  *copy = nullptr;
}

// `call` is given the words, and the list behind them. They are as many as fit on the stack.
template <typename Call>
int WithWords(const char* first, va_list words, Call call) {
  va_list counted;
  va_copy(counted, words);
  const std::size_t count = CountWords(first, counted);
  va_end(counted);
  auto** const copy = static_cast<char**>(alloca((count + 1) * sizeof(char*)));
  va_list copied;
  va_copy(copied, words);
  CopyWords(first, copied, copy);
  char* const* const behind = va_arg(copied, char* const*);
  va_end(copied);
  return call(copy, behind);
}

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

int execve(const char* path, char* const* words, char* const* environment) {
  return board::Execute(path, words, environment);
}

int execv(const char* path, char* const* words) { return board::Execute(path, words, environ); }

int execvpe(const char* name, char* const* words, char* const* environment) {
  return board::ExecuteFound(name, words, environment);
}

int execvp(const char* name, char* const* words) {
  return board::ExecuteFound(name, words, environ);
}

int execl(const char* path, const char* first, ...) {
  va_list words;
  va_start(words, first);
  const int result = board::WithWords(
      first, words, [=](char** all, char* const*) { return board::Execute(path, all, environ); });
  va_end(words);
  return result;
}

int execle(const char* path, const char* first, ...) {
  va_list words;
  va_start(words, first);
  const int result = board::WithWords(first, words, [=](char** all, char* const* environment) {
    return board::Execute(path, all, environment);
  });
  va_end(words);
  return result;
}

int execlp(const char* name, const char* first, ...) {
  va_list words;
  va_start(words, first);
  const int result = board::WithWords(first, words, [=](char** all, char* const*) {
    return board::ExecuteFound(name, all, environ);
  });
  va_end(words);
  return result;
}

int execveat(int directory, const char* path, char* const* words, char* const* environment,
             int flags) {
  return board::Exec(board::AllowAt(directory, path, environment, flags), [=] {
    return board::real::Execveat(directory, path, words, environment, flags);
  });
}

int fexecve(int file, char* const* words, char* const* environment) {
  return board::Exec(board::AllowOpen(file, environment),
                     [=] { return board::real::Fexecve(file, words, environment); });
}

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
  if (!board::AllowFile(path, environment)) return EACCES;
  return board::real::PosixSpawn(child, path, actions, attributes, words, environment);
}

int posix_spawnp(pid_t* child, const char* name, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* words,
                 char* const* environment) {
  if (!board::AllowFound(name, environment)) return EACCES;
  return board::real::PosixSpawnp(child, name, actions, attributes, words, environment);
}

// These end a process without the board's destructor.
void _exit(int status) {
  board::WriteTranscriptNow();
  board::real::Exit(status);
}

void _Exit(int status) {
  board::WriteTranscriptNow();
  board::real::Exit(status);
}

}  // extern "C"
#pragma GCC visibility pop
