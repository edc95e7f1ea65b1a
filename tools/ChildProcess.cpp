#include "ChildProcess.h"

#include <errno.h>
#include <fmt/core.h>
#include <poll.h>
#include <spawn.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string_view>

#include "Failure.h"
#include "LibraryOutput.h"

namespace tool {
namespace {

constexpr std::array kPassedOn{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

sigset_t Handled() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kPassedOn) sigaddset(&set, number);
  sigaddset(&set, SIGUSR1);
  sigaddset(&set, SIGCHLD);
  return set;
}

// Our environment with other values of some variables, "NAME=VALUE" each.
std::vector<std::string> EnvironmentWith(const ChildProcess::Variables& variables) {
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const bool replaced = [&] {
      for (const auto& [name, value] : variables) {
        if (text.substr(0, text.find('=')) == name) return true;
      }
      return false;
    }();
    if (!replaced) all.emplace_back(text);
  }
  for (const auto& [name, value] : variables) all.push_back(fmt::format("{}={}", name, value));
  return all;
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& words, const Variables& variables) {
  const sigset_t handled = Handled();
  pthread_sigmask(SIG_BLOCK, &handled, &before_);
  signals_ = signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  // Ours goes to where the library's output is collected.
  if (FILE* const user = LibraryOutput::Instance().user()) {
    posix_spawn_file_actions_adddup2(&actions, fileno(user), STDOUT_FILENO);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  posix_spawnattr_setsigmask(&attributes, &before_);
  sigset_t usual;
  sigemptyset(&usual);
  sigaddset(&usual, SIGUSR1);
  posix_spawnattr_setsigdefault(&attributes, &usual);

  const std::vector<std::string> environment = EnvironmentWith(variables);
  const int error = posix_spawnp(&pid_, words.front().c_str(), &actions, &attributes,
                                 Pointers(words).data(), Pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error == 0) return;
  close(signals_);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  throw Failure(error == EACCES ? ExitCode::kNoPermission : ExitCode::kFile,
                fmt::format("cannot start {}: {}", words.front(), strerror(error)));
}

ChildProcess::~ChildProcess() {
  // What came for the application after its end does not end us instead.
  signalfd_siginfo late{};
  while (read(signals_, &late, sizeof late) == sizeof late) {
  }
  close(signals_);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

ChildProcess::News ChildProcess::Wait(std::chrono::milliseconds most) {
  pollfd wanted{signals_, POLLIN, 0};
  News news = News::kNone;
  if (poll(&wanted, 1, static_cast<int>(most.count())) > 0) {
    signalfd_siginfo info{};
    while (read(signals_, &info, sizeof info) == sizeof info) {
      const int number = static_cast<int>(info.ssi_signo);
      if (number == SIGUSR1) news = News::kAsked;
      if (number == SIGUSR1 || number == SIGCHLD) continue;
      passed_on_ = number;
      // A terminal sends its signals to all processes in front of it.
      if (info.ssi_code != SI_KERNEL) Signal(number);
    }
  }
  if (!ended_) ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
  return ended_ ? News::kEnded : news;
}

void ChildProcess::Signal(int number) {
  if (ended_) return;
  passed_on_ = number;
  kill(pid_, number);
}

int ChildProcess::Status() const {
  return WIFSIGNALED(status_) ? 128 + WTERMSIG(status_) : WEXITSTATUS(status_);
}

bool ChildProcess::crashed() const {
  return WIFSIGNALED(status_) && WTERMSIG(status_) != passed_on_;
}

}  // namespace tool
