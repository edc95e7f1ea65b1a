#include "reliability/InterruptedRun.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string_view>

#include "reliability/ShutdownOrder.h"
#include "reliability/StormMarks.h"
#include "support/Sanitizers.h"

namespace tessaline_test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStartUpMs = 120'000;
constexpr int kHangMs = 20'000;
constexpr int kPressedAgainMs = 20;
constexpr int kOrphansMs = 5'000;
constexpr const char* kOutput = "output.txt";
constexpr const char* kTranscript = "transcript.json";

// Lines that a working application prints. The image device rejects a different format while it has
// buffers, the notifiers report what they did, and the self-test of the IMX252 waits for its image
// in pauses that are skipped here.
constexpr std::array<std::string_view, 4> kAlwaysExpected{
    "v4l2 VIDIOC_S_FMT failed: Device or resource busy", " This thread has been opened!",
    " This thread has been closed!", "PowerOnSelfTest252"};
// A write after the FPGA's stop fails, and this setter reports it.
constexpr std::array<std::string_view, 1> kExpectedOfOtherThreads{"SetRisThresholdValue error"};
// A handler that cannot return is reported.
constexpr std::array<std::string_view, 2> kExpectedOfHandlers{
    "a callback of the application does not return",
    " thread is still at work, its buffers stay mapped"};
// Returning a buffer that the caller does not own is rejected.
constexpr std::array<std::string_view, 1> kExpectedOfSettings{
    "v4l2 VIDIOC_QBUF failed: Invalid argument"};

bool HasAnyOf(const auto& texts, std::string_view line) {
  return std::ranges::any_of(
      texts, [line](std::string_view text) { return line.find(text) != line.npos; });
}

bool Readable(int fd, int milliseconds) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, milliseconds) == 1;
}

template <typename Message>
std::optional<Message> Receive(int report, int milliseconds) {
  Message message{};
  const bool received =
      Readable(report, milliseconds) && read(report, &message, sizeof message) == sizeof message;
  return received ? std::optional(message) : std::nullopt;
}

void Interrupt(pid_t process, pid_t thread) { syscall(SYS_tgkill, process, thread, SIGINT); }

// Either of the two threads may come first.
void InterruptBoth(pid_t process, pid_t second_thread, bool second_first) {
  Interrupt(process, second_first ? second_thread : process);
  Interrupt(process, second_first ? process : second_thread);
}

// Returns false if the process is still running.
bool WaitForTheEnd(pid_t process, bool deaf_at_times) {
  const int fd = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
  bool ended = false;
  if (deaf_at_times) {
    for (int waited = 0; waited < kHangMs && !ended; waited += kPressedAgainMs) {
      ended = Readable(fd, kPressedAgainMs);
      if (!ended) kill(process, SIGINT);
    }
  } else {
    ended = Readable(fd, kHangMs);
  }
  close(fd);
  return ended;
}

std::string Described(int status) {
  if (WIFSIGNALED(status)) {
    return std::string("ended by signal ") + strsignal(WTERMSIG(status));
  }
  return "exit status " + std::to_string(WEXITSTATUS(status));
}

bool Succeeded(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

// Processes that the application started continue without it and become our children. A child that
// was to be interrupted ends with its parent instead.
void JudgeOrphans(std::vector<std::string>& complaints) {
  const auto until = Clock::now() + std::chrono::milliseconds(kOrphansMs);
  for (;;) {
    int status = 0;
    const pid_t orphan = waitpid(-1, &status, WNOHANG);
    if (orphan < 0) return;
    if (orphan == 0) {
      if (Clock::now() > until) {
        complaints.push_back("a child of it is still there");
        return;
      }
      usleep(1000);
      continue;
    }
    const bool ended_with_parent = WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM;
    const bool interrupted = WIFSIGNALED(status) && WTERMSIG(status) == SIGINT;
    if (!Succeeded(status) && !ended_with_parent && !interrupted) {
      complaints.push_back("a child of it: " + Described(status));
    }
  }
}

}  // namespace

void InterruptedRun::Execute(const Interruption& interruption, int report) const {
  const int output =
      open(Path(kOutput).c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND | O_CLOEXEC, 0644);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  dup2(report, kReportDescriptor);
  // Sets close-on-exec on inherited descriptors, because the application's children look for open
  // devices.
  close_range(kReportDescriptor + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  setenv("TESSALINE_BOARD", interruption.model.c_str(), 1);
  setenv("TESSALINE_BOARD_SLEEP", "0", 1);  // during the start-up
  setenv("TESSALINE_BOARD_PACE", "free", 1);
  setenv("TESSALINE_BOARD_STRIPS", "8", 1);
  setenv("TESSALINE_BOARD_TRANSCRIPT", Path(kTranscript).c_str(), 1);
  const std::string activity(interruption.activity.name);
  execl(application_.c_str(), application_.c_str(), interruption.model.c_str(), activity.c_str(),
        nullptr);
  std::perror(application_.c_str());
  _exit(127);
}

int InterruptedRun::Spawn(const Interruption& interruption, int report) const {
  unlink(Path(kTranscript).c_str());
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) Execute(interruption, report);
  return child;
}

void InterruptedRun::JudgeOutput(const StormActivity& activity,
                                 std::vector<std::string>& complaints) const {
  std::ifstream output(Path(kOutput));
  for (std::string line; std::getline(output, line);) {
    const bool expected =
        HasAnyOf(kAlwaysExpected, line) ||
        (activity.others_set_registers && HasAnyOf(kExpectedOfOtherThreads, line)) ||
        (activity.handlers_at_work > 0 && HasAnyOf(kExpectedOfHandlers, line)) ||
        (activity.changes_settings && HasAnyOf(kExpectedOfSettings, line));
    constexpr std::array<std::string_view, 3> kBad{"ERROR", "error", "fail"};
    if (HasAnyOf(kBad, line) && !expected) complaints.push_back("it says: " + line);
  }
}

InterruptedEnd InterruptedRun::Run(const Interruption& interruption) const {
  const StormActivity& activity = interruption.activity;
  InterruptedEnd end;
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return {.complaints = {strerror(errno)}};
  const pid_t child = Spawn(interruption, report[1]);
  close(report[1]);
  const auto at_work = Receive<AtWork>(report[0], kStartUpMs);
  if (at_work) {
    usleep(static_cast<useconds_t>(interruption.after.count()));
  } else {
    end.complaints.push_back("no start-up");
  }
  const auto signalled = Clock::now();
  if (activity.twice && at_work) {
    InterruptBoth(child, at_work->second_thread, interruption.after.count() % 2 != 0);
  } else {
    kill(child, SIGINT);
  }
  const bool ended = WaitForTheEnd(child, activity.deaf_at_times);
  auto last = Clock::now();
  if (!ended) {
    end.complaints.push_back("still there after " + std::to_string(kHangMs / 1000) + " s");
    kill(child, SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (const auto cut = Receive<CutShort>(report[0], 0)) {
    end.cut_short = true;
    last = cut->at;  // the transcript is written after it
    if (!activity.takes_heap) end.complaints.push_back("its end was cut short");
  }
  close(report[0]);
  end.seconds = std::chrono::duration<double>(last - signalled).count();
  if (!Succeeded(status)) end.complaints.push_back(Described(status));
  if (end.seconds > most_seconds_) {
    end.complaints.push_back("took " + std::to_string(end.seconds) + " s");
  }
  JudgeOrphans(end.complaints);
  JudgeOutput(activity, end.complaints);
  // The address sanitizer's heap serves the board, too. The interrupted thread may hold its lock, and
  // then nobody can write the transcript of an end that was cut short.
  if (ended && !(kAddressSanitizer && end.cut_short)) {
    for (auto& complaint : ComplaintsAboutShutdown(Path(kTranscript), activity.handlers_at_work)) {
      end.complaints.push_back(std::move(complaint));
    }
  }
  return end;
}

}  // namespace tessaline_test
