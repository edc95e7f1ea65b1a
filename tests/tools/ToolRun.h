#pragma once

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace tessaline_test {

// Exit statuses from the program's guide.
constexpr int kOk = 0;
constexpr int kNegative = 1;
constexpr int kUsage = 2;
constexpr int kUnreachable = 3;
constexpr int kNoPermission = 4;
constexpr int kExists = 5;
constexpr int kFile = 6;
constexpr int kInterrupted = 130;

// The results of a run of the program.
struct ToolResult {
  int status = -1;  // exit status; 128 + n when signal n ended it
  std::string out;
  std::string err;

  nlohmann::json Json() const;
};

int CountLines(const std::string& text);

// A run of the program "tessaline" as a child process. On the virtual board sleeps are skipped, and
// triggers come as fast as buffers are free.
class ToolRun {
 public:
  explicit ToolRun(const std::string& arguments);

  ToolRun& With(const std::string& name, const std::string& value) {
    environment_[name] = value;
    return *this;
  }
  ToolRun& In(const std::string& directory) {
    directory_ = directory;
    return *this;
  }
  // Once there is a file of this name, no file can grow beyond this many bytes, which looks like a
  // full disk. (The board's memory is a larger file, made before.)
  ToolRun& LimitWhenThereIs(const std::string& path, std::uint64_t bytes) {
    return When([=](const ToolResult&) { return FileHas(path, 0); },
                [=](pid_t child) {
                  const rlimit limit{bytes, bytes};
                  prlimit(child, RLIMIT_FSIZE, &limit, nullptr);
                });
  }
  // Sends the signal once there is a file of this name and size.
  ToolRun& SignalWhenFileHas(int signal, const std::string& path, std::uintmax_t bytes) {
    return When([=](const ToolResult&) { return FileHas(path, bytes); },
                [=](pid_t child) { kill(child, signal); });
  }
  // Does something to the process, once, as soon as the condition holds for its output or anything
  // else.
  ToolRun& When(std::function<bool(const ToolResult&)> condition,
                std::function<void(pid_t)> action) {
    condition_ = std::move(condition);
    action_ = std::move(action);
    return *this;
  }

  // Closes the reading end after this many lines.
  ToolRun& ReadingLines(int lines) {
    lines_ = lines;
    return *this;
  }
  ToolRun& PrintingTo(const std::string& path) {
    output_ = path;
    return *this;
  }
  ToolRun& WithoutStandardOutput() {
    closed_ = true;
    return *this;
  }
  // Another program, which runs on the board by itself.
  ToolRun& Program(const std::string& path, const std::string& model) {
    program_ = path;
    return With("TESSALINE_BOARD", model).With("LD_PRELOAD", TESSALINE_BOARD_LIBRARY);
  }
  // As a shell starts it: a Ctrl-Z stops it and nothing else.
  ToolRun& InAGroupOfItsOwn() {
    own_group_ = true;
    return *this;
  }

  ToolResult Run() const;

  // In a child process: never returns.
  [[noreturn]] void Become() const;

 private:
  void Gather(pid_t child, int out, int err, ToolResult& result) const;

  static bool FileHas(const std::string& path, std::uintmax_t bytes);

  std::string arguments_;
  std::map<std::string, std::string> environment_;
  std::string directory_;
  std::string output_;
  std::string program_;
  bool closed_ = false;
  bool own_group_ = false;
  int lines_ = 0;
  std::function<bool(const ToolResult&)> condition_;
  std::function<void(pid_t)> action_;
};

ToolResult RunTool(const std::string& arguments);

// A directory that is removed after the test.
class Directory {
 public:
  Directory() {
    char path[] = "/tmp/tessaline-tool-XXXXXX";
    path_ = mkdtemp(path);
  }
  ~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string FileText(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

}  // namespace tessaline_test
