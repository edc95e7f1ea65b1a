#include "time/ProgramOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

// Users do not always have them in PATH.
constexpr std::string_view kRootsFolders = "/usr/sbin:/sbin";

std::string Find(const std::string& name) {
  const char* const path = getenv("PATH");
  std::string folders = path == nullptr ? "" : std::string(path) + ':';
  folders.append(kRootsFolders).append(":");
  for (std::size_t begin = 0, end = 0; (end = folders.find(':', begin)) != folders.npos;
       begin = end + 1) {
    const std::string file = folders.substr(begin, end - begin) + '/' + name;
    if (access(file.c_str(), X_OK) == 0) return file;
  }
  return {};
}

// Ours without what loads a virtual board, which would speak up about a program without it.
std::vector<std::string> PlainEnvironment() {
  std::vector<std::string> plain{"TESSALINE_BOARD="};
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    if (text.starts_with("TESSALINE_") || text.starts_with("LD_PRELOAD=")) continue;
    plain.emplace_back(text);
  }
  return plain;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Until the end, or until time is up.
std::string ReadAll(int descriptor, Clock::time_point until) {
  std::string text;
  std::array<char, 4096> part{};
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    pollfd poll{descriptor, POLLIN, 0};
    const int ready = left <= 0 ? 0 : ::poll(&poll, 1, static_cast<int>(left));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return text;
    const ssize_t got = read(descriptor, part.data(), part.size());
    if (got <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

std::optional<std::string> ProgramOutput(const std::vector<std::string>& words,
                                         std::chrono::milliseconds most) {
  const std::string file = Find(words.front());
  std::array<int, 2> pipe{};
  if (file.empty() || pipe2(pipe.data(), O_CLOEXEC) != 0) return std::nullopt;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<std::string> arguments = words;
  std::vector<std::string> environment = PlainEnvironment();
  pid_t child = -1;
  const int error = posix_spawn(&child, file.c_str(), &actions, nullptr, Pointers(arguments).data(),
                                Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  close(pipe[1]);
  std::optional<std::string> text;
  if (error == 0) {
    text = ReadAll(pipe[0], Clock::now() + most);
    kill(child, SIGKILL);  // nothing, if it has ended
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  close(pipe[0]);
  return text;
}

}  // namespace tool
