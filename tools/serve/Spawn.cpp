#include "serve/Spawn.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "Failure.h"

namespace tool::serve {
namespace {

// What loads a virtual board into a program.
bool IsOfBoard(std::string_view entry) {
  return entry.starts_with("TESSALINE_BOARD") || entry.starts_with("LD_PRELOAD=") ||
         entry.starts_with("TESSALINE_TOOL_STARTED_ANEW=");
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

std::string ProgramBeside(const std::string& name) {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  const auto beside = self.parent_path() / name;
  return std::filesystem::exists(beside, error) ? beside.string() : name;
}

pid_t Spawn(const std::vector<std::string>& words,
            const std::vector<std::pair<std::string, std::string>>& variables, bool on_board,
            int input, int output) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const bool replaced = std::any_of(variables.begin(), variables.end(), [&](const auto& one) {
      return text.substr(0, text.find('=')) == one.first;
    });
    if (!replaced && (on_board || !IsOfBoard(text))) environment.emplace_back(text);
  }
  // On purpose: the board says of other programs that they run without it.
  if (!on_board) environment.emplace_back("TESSALINE_BOARD=");
  for (const auto& [name, value] : variables) {
    environment.push_back(fmt::format("{}={}", name, value));
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (input >= 0) {
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  // The network's sockets are not for others.
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  sigset_t usual;
  sigfillset(&usual);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setpgroup(&attributes, 0);
  std::vector<std::string> arguments = words;
  pid_t child = -1;
  const int error = posix_spawnp(&child, words.front().c_str(), &actions, &attributes,
                                 Pointers(arguments).data(), Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) {
    throw Failure(ExitCode::kFile,
                  fmt::format("cannot start {}: {}", words.front(), strerror(error)),
                  "install the package tessaline-tools");
  }
  return child;
}

}  // namespace tool::serve
