#include "Program.h"

#include <errno.h>
#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <utility>

#include "Descriptor.h"
#include "Failure.h"
#include "program/ProgramCheck.h"

namespace runner {
namespace {

// What the processor reports stays with this process.
constexpr std::array kOwnSignals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS};
constexpr std::array kStopsOfTerminal{SIGTSTP, SIGTTIN, SIGTTOU};

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// What cannot be executed is a script of the shell's.
void Execute(const std::string& file, const std::vector<std::string>& words) {
  execve(file.c_str(), Pointers(words).data(), environ);
  if (errno != ENOEXEC) return;
  std::vector<std::string> shell{"/bin/sh", file};
  shell.insert(shell.end(), words.begin() + 1, words.end());
  execve(shell.front().c_str(), Pointers(shell).data(), environ);
}

// The program and the signals that arrive here for it.
class Child {
 public:
  Child(const std::string& file, const std::vector<std::string>& words) : parent_(getpid()) {
    sigset_t handled;
    sigfillset(&handled);
    for (const int number : kOwnSignals) sigdelset(&handled, number);
    sigprocmask(SIG_BLOCK, &handled, &mask_before_);
    // Whoever ignores it is not told of the end of a child.
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &child_action_before_);
    signals_ = signalfd(-1, &handled, SFD_CLOEXEC);
    Start(file, words);
  }

  int signals() const { return signals_; }

  // Returns the exit status.
  int Wait() {
    for (;;) {
      signalfd_siginfo info{};
      if (read(signals_, &info, sizeof info) != sizeof info) {
        // Without news there is still the end to wait for.
        if (waitpid(process_, &status_, 0) == process_ || errno != EINTR) break;
        continue;
      }
      const int number = static_cast<int>(info.ssi_signo);
      // The terminal, and the kernel on its behalf, sends its signals to all processes in front.
      if (number != SIGCHLD && info.ssi_code != SI_KERNEL) kill(process_, number);
      if (number == SIGCHLD && HasEnded()) break;
    }
    return WIFSIGNALED(status_) ? 128 + WTERMSIG(status_) : WEXITSTATUS(status_);
  }

 private:
  void Start(const std::string& file, const std::vector<std::string>& words) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail(file, errno);
    const Descriptor report(ends[0]);
    {
      const Descriptor end(ends[1]);
      process_ = fork();
      if (process_ < 0) Fail(file, errno);
      if (process_ == 0) Become(file, words, end.number());
    }
    // It is empty if the program has started.
    int error = 0;
    if (read(report.number(), &error, sizeof error) != sizeof error) return;
    waitpid(process_, &status_, 0);
    Fail(file, error);
  }

  [[noreturn]] void Become(const std::string& file, const std::vector<std::string>& words,
                           int report) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent_) _exit(128 + SIGKILL);  // too late for the signal
    sigaction(SIGCHLD, &child_action_before_, nullptr);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    Execute(file, words);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = write(report, &error, sizeof error);
    _exit(static_cast<int>(ExitCode::kCannotRun));
  }

  [[noreturn]] void Fail(const std::string& file, int error) const {
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    const char* const why =
        error == ENOENT ? "its interpreter or its loader is missing" : strerror(error);
    throw Failure(ExitCode::kCannotRun, fmt::format("cannot run {}: {}", file, why));
  }

  bool HasEnded() {
    while (waitpid(process_, &status_, WNOHANG | WUNTRACED) == process_) {
      if (!WIFSTOPPED(status_)) return true;
      // The shell waits for this process. The signal that continues it is passed on, too.
      const bool of_terminal = std::find(kStopsOfTerminal.begin(), kStopsOfTerminal.end(),
                                         WSTOPSIG(status_)) != kStopsOfTerminal.end();
      if (of_terminal) raise(SIGSTOP);
    }
    return false;
  }

  const pid_t parent_;
  pid_t process_ = -1;
  int status_ = 0;
  int signals_ = -1;
  sigset_t mask_before_{};
  struct sigaction child_action_before_ {};
};

// Whoever is at the other end of a pipe waits for the program, not for this process.
void CloseAllBut(std::set<int> kept) {
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (nothing >= 0) dup2(nothing, standard);
  }
  unsigned first = STDERR_FILENO + 1;
  for (const int number : kept) {
    if (number < 0) continue;
    const auto next = static_cast<unsigned>(number);
    if (next > first) close_range(first, next - 1, 0);
    first = std::max(first, next + 1);
  }
  close_range(first, ~0u, 0);
}

}  // namespace

std::string FindProgram(const std::string& name) {
  const char* const search_path = std::getenv("PATH");
  board::PathBuffer file{};
  board::CheckedProgram found;
  int error = board::FindProgramFile(name, search_path, file);
  if (error == 0 && access(file.data(), X_OK) != 0) error = errno;
  if (error == ENOENT || error == ENOTDIR) {
    throw Failure(ExitCode::kNotFound, fmt::format("there is no program {}", name));
  }
  if (error == 0) board::CheckProgram(AT_FDCWD, file.data(), search_path, found);
  if (!found.runs) {
    const std::string why = found.is_interpreter ? fmt::format("its interpreter {} is not there",
                                                               found.interpreter.data())
                                                 : strerror(error == 0 ? EACCES : error);
    throw Failure(ExitCode::kCannotRun, fmt::format("cannot run {}: {}", name, why));
  }
  if (found.obstacle != board::Obstacle::kNone) {
    const auto [what, advice] = board::TextOf(found.obstacle);
    const std::string who = found.is_interpreter
                                ? fmt::format("its interpreter {}", found.interpreter.data())
                                : std::string("it");
    throw Failure(
        ExitCode::kCannotRun,
        fmt::format("{} would run without the virtual board: {} {}; {}", name, who, what, advice));
  }
  return file.data();
}

int RunProgram(const std::string& file, const std::vector<std::string>& words,
               const std::vector<int>& kept) {
  Child child(file, words);
  std::set<int> all(kept.begin(), kept.end());
  all.insert(child.signals());
  CloseAllBut(std::move(all));
  return child.Wait();
}

}  // namespace runner
