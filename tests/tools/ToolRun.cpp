#include "ToolRun.h"

#include <poll.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace tessaline_test {

nlohmann::json ToolResult::Json() const { return nlohmann::json::parse(out, nullptr, false); }

int CountLines(const std::string& text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

ToolRun::ToolRun(const std::string& arguments) : arguments_(arguments), program_(TESSALINE_TOOL) {
  // Settings of the machine that runs the tests must not matter.
  for (const char* name : {"TESSALINE_MODEL", "TESSALINE_BOARD", "TESSALINE_BOARD_FAULTS",
                           "TESSALINE_BOARD_OPTICS", "TESSALINE_BOARD_SCENE"}) {
    environment_[name] = "";
  }
  environment_["TESSALINE_BOARD_SLEEP"] = "0";
  environment_["TESSALINE_BOARD_PACE"] = "free";  // a busy machine loses nothing
}

ToolResult ToolRun::Run() const {
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

void ToolRun::Become() const {
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

void ToolRun::Gather(pid_t child, int out, int err, ToolResult& result) const {
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

bool ToolRun::FileHas(const std::string& path, std::uintmax_t bytes) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored) &&
         std::filesystem::file_size(path, ignored) >= bytes;
}

ToolResult RunTool(const std::string& arguments) { return ToolRun(arguments).Run(); }

std::string FileText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

}  // namespace tessaline_test
