#include "OutputFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

#include "Failure.h"
#include "LibraryOutput.h"

namespace tool {
namespace {

constexpr std::size_t kFlushAt = 1 << 18;
constexpr mode_t kMode = 0666;  // less the umask

Failure Cannot(const char* what, const std::string& path, int error) {
  const char* next = error == ENOSPC || error == EDQUOT || error == EFBIG
                         ? "make room, or write elsewhere"
                     : error == ENOENT ? "create the directory first, or write elsewhere"
                                       : "write elsewhere";
  const std::string name = IsStandardOutput(path) ? "standard output" : path;
  return Failure(ExitCode::kFile, fmt::format("cannot {} {}: {}", what, name, strerror(error)),
                 next);
}

Failure Exists(const std::string& path) {
  return Failure(ExitCode::kExists, fmt::format("{} already exists", path),
                 "--force overwrites it");
}

bool UserAgreesToOverwrite(const std::string& path) {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0) return false;
  fprintf(stderr, "%s exists. Overwrite it? [y/N] ", path.c_str());
  char answer[16] = "";
  return fgets(answer, sizeof answer, stdin) != nullptr && (answer[0] == 'y' || answer[0] == 'Y');
}

}  // namespace

bool IsStandardOutput(const std::string& path) {
  return path == "-" || path == "/dev/stdout" || path == "/dev/fd/1" || path == "/proc/self/fd/1";
}

bool IsStream(const std::string& path) {
  std::error_code ignored;
  return IsStandardOutput(path) || std::filesystem::is_fifo(path, ignored);
}

bool MayOverwrite(const std::string& path, bool force) {
  if (IsStandardOutput(path)) return true;
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw Cannot("write", path, EISDIR);
  if (!std::filesystem::exists(path, ignored)) {
    const std::string parent = std::filesystem::path(path).parent_path();
    if (access(parent.empty() ? "." : parent.c_str(), W_OK) == 0) return force;
    throw Cannot("create", path, errno);
  }
  if (force) return true;
  if (UserAgreesToOverwrite(path)) return true;
  throw Exists(path);
}

void RemoveFile(const std::string& path) {
  std::error_code ignored;
  if (!IsStandardOutput(path) && std::filesystem::is_regular_file(path, ignored))
    unlink(path.c_str());
}

OutputFile::OutputFile(std::string path, bool force) : path_(std::move(path)) {
  signal(SIGXFSZ, SIG_IGN);  // a file-size limit is reported like a full disk
  if (IsStandardOutput(path_)) {
    FILE* const user = LibraryOutput::Instance().user();
    fd_ = user == nullptr ? -1 : fcntl(fileno(user), F_DUPFD_CLOEXEC, 3);
    if (fd_ < 0) throw Cannot("write", path_, EBADF);
    return;
  }
  const int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
  fd_ = open(path_.c_str(), flags | (force ? 0 : O_EXCL), kMode);
  if (fd_ < 0 && errno == EEXIST) {
    if (!UserAgreesToOverwrite(path_)) {
      throw Exists(path_);
    }
    fd_ = open(path_.c_str(), flags, kMode);
  }
  if (fd_ < 0) throw Cannot("create", path_, errno);
  LockAndEmpty();
}

// The lock goes with the descriptor. Pipes and devices are nobody's own.
void OutputFile::LockAndEmpty() {
  struct stat status {};
  if (fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode)) return;
  if (flock(fd_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    close(fd_);
    throw Failure(ExitCode::kExists, fmt::format("{} is being written by another command", path_),
                  "wait for it, or write elsewhere");
  }
  if (ftruncate(fd_, 0) != 0) throw Cannot("write", path_, errno);
}

OutputFile::~OutputFile() {
  if (fd_ >= 0) close(fd_);
}

void OutputFile::Append(std::span<const std::uint8_t> bytes) {
  pending_.insert(pending_.end(), bytes.begin(), bytes.end());
}

void OutputFile::Append(std::string_view text) {
  Append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

void OutputFile::EndRecord() {
  ends_.push_back(pending_.size());
  if (pending_.size() >= kFlushAt) Flush();
}

void OutputFile::Flush() {
  if (failed_) return;
  std::size_t written = 0;
  int error = 0;
  while (written < pending_.size() && error == 0) {
    const ssize_t count = write(fd_, pending_.data() + written, pending_.size() - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      error = errno;
    }
  }
  std::size_t whole = 0;
  for (const std::size_t end : ends_) {
    if (end > written) break;
    whole = end;
    ++records_;
  }
  if (error == 0) whole = written;
  size_ += static_cast<off_t>(whole);
  pending_.clear();
  ends_.clear();
  if (error == 0) return;
  failed_ = true;
  // This only frees space. If it fails too, the last record stays cut.
  [[maybe_unused]] const int cut = ftruncate(fd_, size_);
  throw Cannot("write", path_, error);
}

void OutputFile::Rewrite(off_t offset, std::span<const std::uint8_t> bytes) {
  if (pwrite(fd_, bytes.data(), bytes.size(), offset) != static_cast<ssize_t>(bytes.size())) {
    throw Cannot("write", path_, errno);
  }
}

WholeFile::WholeFile(std::string path, bool force) : path_(std::move(path)), force_(force) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path_, ignored);
  if (IsStandardOutput(path_) ||
      (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))) {
    return;
  }
  part_ = std::make_unique<OutputFile>(path_ + ".part", /*force=*/true);
}

WholeFile::~WholeFile() {
  if (part_) part_->Remove();
}

void WholeFile::Write(std::span<const std::uint8_t> bytes) {
  if (!part_) return WriteWholeFile(path_, force_, bytes);
  part_->Append(bytes);
  part_->Flush();
  const char* const part = part_->path().c_str();
  if (!force_) {
    // Reserves the name: nobody else's file is replaced. Not every file system has links.
    const int fd = open(path_.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    if (fd < 0) throw errno == EEXIST ? Exists(path_) : Cannot("create", path_, errno);
    close(fd);
  }
  if (rename(part, path_.c_str()) != 0) throw Cannot("create", path_, errno);
  part_.reset();  // another command may use the name now
}

void WriteWholeFile(const std::string& path, bool force, std::span<const std::uint8_t> bytes) {
  OutputFile file(path, force);
  try {
    file.Append(bytes);
    file.Flush();
  } catch (const Failure&) {
    file.Remove();
    throw;
  }
}

}  // namespace tool
