#include "TranscriptFile.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "Caller.h"
#include "RealCalls.h"
#include "Transcript.h"

extern "C" int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* dso);

namespace board {
namespace {

constexpr const char* kFile = "TESSALINE_BOARD_TRANSCRIPT";
// "PID FILE": the process that writes FILE.
constexpr const char* kWriter = "TESSALINE_BOARD_TRANSCRIPT_WRITER";
constexpr std::size_t kLongestName = 64;

struct TranscriptFile {
  std::string given;  // as the variable has it
  std::string path;   // does not depend on the current folder
  std::string program;
  pid_t process = 0;
  bool first = false;    // of the processes that have the variable
  bool started = false;  // what is in it is of this process
};

// Never destroyed: a process may end on any thread.
TranscriptFile* the_file = nullptr;

bool Write(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = real::Write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

void Complain(const std::string& path) {
  Write(STDERR_FILENO, fmt::format("{}: {}: {}\n", kFile, path, strerror(errno)));
}

int OpenForWriting(const std::string& path, bool anew) {
  const int flags = O_CREAT | O_WRONLY | O_CLOEXEC | (anew ? O_TRUNC : O_APPEND);
  const int file = real::Open(AT_FDCWD, path.c_str(), flags, 0666);
  if (file < 0) Complain(path);
  return file;
}

// log.txt -> log.i2cget-1234.txt
std::string PathOf(const TranscriptFile& file) {
  if (file.first) return file.path;
  const std::filesystem::path path(file.path);
  const std::string name =
      fmt::format("{}.{}-{}{}", path.stem().native(), file.program.substr(0, kLongestName),
                  file.process, path.extension().native());
  return path.parent_path() / name;
}

void InForkedChild() {
  EnterBoard(false);
  SkipTranscript();  // the parent writes it
  the_file->process = getpid();
  the_file->first = false;
  the_file->started = false;
  LeaveBoard();
}

}  // namespace

bool StartTranscriptFile() {
  const char* const given = std::getenv(kFile);
  if (given == nullptr || *given == '\0') return false;
  std::error_code ignored;
  the_file = new TranscriptFile{given, std::filesystem::absolute(given, ignored),
                                program_invocation_short_name, getpid()};
  const char* const variable = std::getenv(kWriter);
  const std::string_view writer = variable != nullptr ? variable : "";
  const std::string own = fmt::format("{} {}", the_file->process, given);
  const std::size_t blank = writer.find(' ');
  const bool known = blank != std::string_view::npos && writer.substr(blank + 1) == given;
  the_file->first = !known || own == writer;
  // After an exec, the first part is there already.
  the_file->started = known && the_file->first;
  if (!known) {
    setenv(kWriter, own.c_str(), 1);
    const int file = OpenForWriting(the_file->path, true);
    if (file >= 0) real::Close(file);
    the_file->started = file >= 0;
  }
  // As pthread_atfork, but exit() does not remove it in the middle of a fork.
  __register_atfork(nullptr, nullptr, InForkedChild, nullptr);
  return true;
}

bool HasTranscriptFile() { return the_file != nullptr && getpid() == the_file->process; }

void WriteTranscriptFile() {
  if (!HasTranscriptFile()) return;
  const std::string path = PathOf(*the_file);
  const TranscriptPart part =
      TakeTranscript(path.ends_with(".json") ? TESSALINE_BOARD_JSON_LINES : TESSALINE_BOARD_TEXT);
  const bool wanted = the_file->first || the_file->started || part.has_device;
  if (!wanted || part.text.empty()) return;
  const int file = OpenForWriting(path, !the_file->started);
  if (file < 0) return;
  the_file->started = true;
  if (!Write(file, part.text)) Complain(path);
  real::Close(file);
}

void TranscriptWasSaved(const char* path) {
  if (the_file == nullptr || the_file->given != path || !the_file->first) return;
  SkipTranscript();
  the_file->started = true;
}

}  // namespace board
