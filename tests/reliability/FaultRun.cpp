#include "FaultRun.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "Tour.h"
#include "tessaline/board.h"

namespace reliability {

// An unnamed file, which the child fills and the parent reads afterwards.
class FaultRun::File {
 public:
  explicit File(const char* name) : fd_(memfd_create(name, 0)) {
    if (fd_ < 0) abort();
  }
  ~File() { close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int fd() const { return fd_; }

  std::vector<std::string> Lines() const {
    lseek(fd_, 0, SEEK_SET);
    std::string text;
    char piece[4096];
    for (ssize_t got; (got = read(fd_, piece, sizeof piece)) > 0;) {
      text.append(piece, static_cast<std::size_t>(got));
    }
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

 private:
  int fd_;
};

namespace {

constexpr int kHungStatus = 99;
constexpr std::size_t kTimeOfDay = sizeof "12:34:56";  // and a blank
// The parent waits this much longer before it kills a child that cannot end itself.
constexpr double kGraceSeconds = 5;
// A caller is quiet if it ran, or could have run, for less than this part of the time.
constexpr double kQuietShare = 0.1;

// The child's state that its callbacks use.
int results_fd = -1;
int events_fd = -1;
const Fault* planned = nullptr;
unsigned steps_told = 0;
bool interrupted = false;

bool Surveying() { return planned->error == TESSALINE_BOARD_CALLED; }

void PlantWhenDue() {
  if (steps_told != planned->step) return;
  tessaline_board_fault(planned->device.c_str(), planned->operation.c_str(), planned->nth,
                        Surveying() ? 0 : 1, planned->error);
}

void Append(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t written = write(fd, text.data() + done, text.size() - done);
    if (written < 0) abort();
    done += static_cast<std::size_t>(written);
  }
}

std::string Transcript() {
  char* const text = tessaline_board_transcript(TESSALINE_BOARD_TEXT);
  std::string events = text;
  free(text);
  return events;
}

void KeepEvents() {
  const std::string events = Transcript();
  tessaline_board_transcript_clear();
  Append(events_fd, events);
}

bool HasStruck() {
  const std::string call = planned->device + ' ' + planned->operation;
  const std::string seen = Transcript();
  return seen.find(call + " failed: ") != std::string::npos ||
         seen.find(call + " cut short") != std::string::npos;
}

[[noreturn]] void Leave(int status) {
  KeepEvents();
  _exit(status);
}

void Tell(const std::string& line) {
  Append(results_fd, line + "\n");
  ++steps_told;
  PlantWhenDue();
  if (!Surveying()) return;
  KeepEvents();
  Append(events_fd, "in " + line + "\n");
}

// The exit by the library's SIGINT handler.
void AtExit(int status, void* /*unused*/) {
  if (interrupted) Tell("SIGINT = " + std::to_string(status));
  Leave(status);
}

// Seconds that the process's first thread ran or waited for a processor.
double BusySeconds() {
  std::ifstream statistics("/proc/self/task/" + std::to_string(getpid()) + "/schedstat");
  double ran = 0;
  double waited = 0;
  statistics >> ran >> waited;
  return (ran + waited) * 1e-9;
}

// Writes the transcript and ends the process when it hangs. It does not sleep, because the board
// shortens every sleep of this process.
void WatchForHangs(FaultRun::Patience patience) {
  std::thread([patience] {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock lock(mutex);
    for (double busy = BusySeconds();;) {
      never.wait_for(lock, std::chrono::duration<double>(patience.quiet_seconds),
                     [] { return false; });
      const double busy_now = BusySeconds();
      const std::chrono::duration<double> took = Clock::now() - start;
      const bool quiet = busy_now - busy < kQuietShare * patience.quiet_seconds;
      if ((quiet && HasStruck()) || took.count() > patience.seconds) Leave(kHungStatus);
      busy = busy_now;
    }
  }).detach();
}

}  // namespace

FaultRun::FaultRun(const std::string& model, const Fault& fault, Patience patience)
    : results_(std::make_unique<File>("results")),
      printed_(std::make_unique<File>("printed")),
      events_(std::make_unique<File>("events")),
      patience_ends_(std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                         std::chrono::duration<double>(patience.seconds + kGraceSeconds))) {
  fflush(nullptr);
  child_ = fork();
  if (child_ != 0) return;
  dup2(printed_->fd(), STDOUT_FILENO);
  dup2(printed_->fd(), STDERR_FILENO);
  setvbuf(stdout, nullptr, _IONBF, 0);
  results_fd = results_->fd();
  events_fd = events_->fd();
  planned = &fault;
  tessaline_board_set_sleep_factor(0);
  tessaline_board_set_pace(TESSALINE_BOARD_FREE_RUN);
  if (tessaline_board_select(model.c_str()) != 0) abort();
  WatchForHangs(patience);
  PlantWhenDue();
  on_exit(AtExit, nullptr);
  Tour(model, Tell);
  interrupted = true;
  raise(SIGINT);
  Leave(EXIT_SUCCESS);
}

std::unique_ptr<FaultRun> FaultRun::Survey(const std::string& model, Patience patience) {
  return std::make_unique<FaultRun>(model, Fault{"*", "*", 0, 0, TESSALINE_BOARD_CALLED}, patience);
}

FaultRun::~FaultRun() {
  if (child_ <= 0) return;
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
}

bool FaultRun::Ended() {
  if (child_ < 0) return true;
  int status = 0;
  if (waitpid(child_, &status, WNOHANG) != child_) {
    if (std::chrono::steady_clock::now() < patience_ends_) return false;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
    ending_ = Ending::kHung;
  } else if (WIFSIGNALED(status)) {
    ending_ = Ending::kCrashed;
    status_ = WTERMSIG(status);
  } else {
    status_ = WEXITSTATUS(status);
    if (status_ == kHungStatus) ending_ = Ending::kHung;
  }
  child_ = -1;
  return true;
}

Outcome FaultRun::Take() const {
  Outcome outcome{ending_, status_, results_->Lines(), printed_->Lines(), events_->Lines()};
  for (std::string& line : outcome.printed) {
    if (line.size() > kTimeOfDay && line[2] == ':' && line[5] == ':') line.erase(0, kTimeOfDay);
  }
  return outcome;
}

}  // namespace reliability
