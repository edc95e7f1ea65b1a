#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
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

  nlohmann::json Json() const { return nlohmann::json::parse(out, nullptr, false); }
};

inline int CountLines(const std::string& text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// A run of the program "tessaline" as a child process. On the virtual board sleeps are skipped, and
// triggers come as fast as buffers are free.
class ToolRun {
 public:
  explicit ToolRun(const std::string& arguments) : arguments_(arguments) {
    // Settings of the machine that runs the tests must not matter.
    for (const char* name : {"TESSALINE_MODEL", "TESSALINE_BOARD", "TESSALINE_BOARD_FAULTS"}) {
      environment_[name] = "";
    }
    environment_["TESSALINE_BOARD_SLEEP"] = "0";
    environment_["TESSALINE_BOARD_PACE"] = "free";  // a busy machine loses nothing
  }

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

  ToolResult Run() const {
    int out[2];
    int err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return {};
    const pid_t child = fork();
    if (child == 0) {
      dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
      dup2(output_.empty() ? out[1] : open(output_.c_str(), O_WRONLY), STDOUT_FILENO);
      dup2(err[1], STDERR_FILENO);
      for (const int fd : {out[0], out[1], err[0], err[1]}) close(fd);
      if (closed_) close(STDOUT_FILENO);
      if (own_group_) setpgid(0, 0);
      Become();
    }
    close(out[1]);
    close(err[1]);
    ToolResult result;
    Gather(child, out[0], err[0], result);
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
  }

  // In a child process: never returns.
  [[noreturn]] void Become() const {
    // The process that started the tests may ignore some of them.
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE}) signal(number, SIG_DFL);
    for (const auto& [name, value] : environment_) setenv(name.c_str(), value.c_str(), 1);
    if (!directory_.empty() && chdir(directory_.c_str()) != 0) _exit(127);
    std::vector<std::string> words{program_};
    std::istringstream stream(arguments_);
    for (std::string word; stream >> word;) words.push_back(word);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
  }

 private:
  void Gather(pid_t child, int out, int err, ToolResult& result) const {
    pollfd fds[]{{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* const texts[]{&result.out, &result.err};
    bool done = false;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    for (int open = 2; open > 0;) {
      poll(fds, 2, 10);
      for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || fds[i].revents == 0) continue;
        char chunk[65536];
        const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
        if (got > 0) {
          texts[i]->append(chunk, static_cast<std::size_t>(got));
        }
        const bool enough = i == 0 && lines_ > 0 && CountLines(result.out) >= lines_;
        if (got > 0 && !enough) continue;
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
      if (!done && condition_ && condition_(result)) {
        action_(child);
        done = true;
      }
      if (std::chrono::steady_clock::now() > end) kill(child, SIGKILL);
    }
  }

  static bool FileHas(const std::string& path, std::uintmax_t bytes) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored) &&
           std::filesystem::file_size(path, ignored) >= bytes;
  }

  std::string arguments_;
  std::map<std::string, std::string> environment_;
  std::string directory_;
  std::string output_;
  std::string program_ = TESSALINE_TOOL;
  bool closed_ = false;
  bool own_group_ = false;
  int lines_ = 0;
  std::function<bool(const ToolResult&)> condition_;
  std::function<void(pid_t)> action_;
};

inline ToolResult RunTool(const std::string& arguments) { return ToolRun(arguments).Run(); }

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

inline std::string FileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

}  // namespace tessaline_test
