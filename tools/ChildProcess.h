#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace tool {

// Another program that runs as if the user had started it: with the user's standard streams, and
// with the signals that this process gets. For the main thread; there is one at a time.
class ChildProcess {
 public:
  using Variables = std::vector<std::pair<std::string, std::string>>;

  // Starts `words`, which is looked up in PATH, with these variables besides our own. Throws
  // Failure if that fails.
  ChildProcess(const std::vector<std::string>& words, const Variables& variables);
  // Signals act on this process again.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits for something to happen.
  enum class News { kNone, kEnded, kAsked };  // kAsked: SIGUSR1, which is not passed on
  News Wait(std::chrono::milliseconds most);

  // Once it has ended: as a shell reports it, 128 and more for a signal.
  int Status() const;
  // Whether a signal ended it that nobody sent it from here.
  bool crashed() const;
  // Nothing, once it has ended: its number may be another process's by then.
  void Signal(int number);

 private:
  pid_t pid_ = -1;
  int status_ = 0;
  bool ended_ = false;
  int signals_ = -1;  // a descriptor
  sigset_t before_{};
  int passed_on_ = 0;  // the last signal
};

}  // namespace tool
