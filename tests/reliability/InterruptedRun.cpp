#include "reliability/InterruptedRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "reliability/ShutdownOrder.h"
#include "reliability/StormMarks.h"

namespace tessaline_test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStartUpMs = 120'000;
constexpr int kHangMs = 20'000;
constexpr const char* kOutput = "output.txt";
constexpr const char* kTranscript = "transcript.json";

// Lines that a healthy application leaves: the image device refuses another format
// while it has buffers, the notifiers tell what they did, and the self-test of the
// IMX252 waits for its image in pauses that are skipped here. A handler that cannot come
// back is told, and so is a buffer that is not the caller's to give back.
struct Expected {
  std::string_view text;
  std::string_view activity = {};  // any
};
constexpr Expected kExpected[] = {
    {"v4l2 VIDIOC_S_FMT failed: Device or resource busy"},
    {" This thread has been opened!"},
    {" This thread has been closed!"},
    {"PowerOnSelfTest252"},
    {"a callback of the application does not return", mark::kLocks},
    {" thread is still at work, its buffers stay mapped", mark::kLocks},
    {"v4l2 VIDIOC_QBUF failed: Invalid argument", mark::kSettings},
};

// One of images, one of strips.
int HandlersAtWork(std::string_view activity) { return activity == mark::kLocks ? 2 : 0; }

bool Readable(int fd, int milliseconds) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, milliseconds) == 1;
}

// False: it is still there.
bool WaitForTheEnd(pid_t process, int milliseconds) {
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  const bool ended = fd >= 0 && Readable(fd, milliseconds);
  close(fd);
  return ended;
}

std::string Described(int status) {
  if (WIFSIGNALED(status)) {
    return std::string("ended by signal ") + strsignal(WTERMSIG(status));
  }
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

void InterruptedRun::Execute(const Interruption& interruption, int ready) const {
  const int output = open(Path(kOutput).c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND, 0644);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  dup2(ready, kReadyDescriptor);
  setenv("TESSALINE_BOARD", interruption.model.c_str(), 1);
  setenv("TESSALINE_BOARD_SLEEP", "0", 1);  // for the start-up
  setenv("TESSALINE_BOARD_PACE", "free", 1);
  setenv("TESSALINE_BOARD_STRIPS", "8", 1);
  setenv("TESSALINE_BOARD_TRANSCRIPT", Path(kTranscript).c_str(), 1);
  execl(application_.c_str(), application_.c_str(), interruption.model.c_str(),
        interruption.activity.c_str(), nullptr);
  std::perror(application_.c_str());
  _exit(127);
}

int InterruptedRun::Spawn(const Interruption& interruption, int ready) const {
  unlink(Path(kTranscript).c_str());
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) Execute(interruption, ready);
  return child;
}

void InterruptedRun::JudgeOutput(std::string_view activity,
                                 std::vector<std::string>& complaints) const {
  std::ifstream output(Path(kOutput));
  for (std::string line; std::getline(output, line);) {
    bool expected = line.find_first_not_of(' ') == std::string::npos;
    for (const auto& [text, only] : kExpected) {
      const bool here = only.empty() || only == activity;
      expected = expected || (here && line.find(text) != std::string::npos);
    }
    const bool error = line.find("ERROR") != std::string::npos ||
                       line.find("error") != std::string::npos ||
                       line.find("fail") != std::string::npos;
    if (error && !expected) complaints.push_back("it says: " + line);
  }
}

InterruptedEnd InterruptedRun::Run(const Interruption& interruption) const {
  InterruptedEnd end;
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return {0, {strerror(errno)}};
  const pid_t child = Spawn(interruption, ready[1]);
  close(ready[1]);
  char byte;
  const bool started = Readable(ready[0], kStartUpMs) && read(ready[0], &byte, 1) == 1;
  close(ready[0]);

  if (started) {
    usleep(static_cast<useconds_t>(interruption.after.count()));
  } else {
    end.complaints.push_back("no start-up");
  }
  const auto signalled = Clock::now();
  kill(child, SIGINT);
  const bool ended = WaitForTheEnd(child, kHangMs);
  end.seconds = std::chrono::duration<double>(Clock::now() - signalled).count();
  if (!ended) {
    end.complaints.push_back("still there after " + std::to_string(kHangMs / 1000) + " s");
    kill(child, SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) end.complaints.push_back(Described(status));
  if (end.seconds > most_seconds_) {
    end.complaints.push_back("took " + std::to_string(end.seconds) + " s");
  }
  JudgeOutput(interruption.activity, end.complaints);
  if (ended) {
    const int at_work = HandlersAtWork(interruption.activity);
    for (auto& complaint : ComplaintsAboutShutdown(Path(kTranscript), at_work)) {
      end.complaints.push_back(std::move(complaint));
    }
  }
  return end;
}

}  // namespace tessaline_test
