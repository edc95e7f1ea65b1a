#include "LibraryOutput.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "Interrupt.h"
#include "Printable.h"

namespace tool {
namespace {

// A chip that stays busy makes the library print forever.
constexpr std::size_t kKeptLines = 500;

void Keep(std::deque<std::string>& lines, std::string line) {
  lines.push_back(std::move(line));
  if (lines.size() > kKeptLines) lines.pop_front();
}

bool Contains(const std::deque<std::string>& lines, const std::string& part) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.find(part) != std::string::npos; });
}

}  // namespace

LibraryOutput& LibraryOutput::Instance() {
  static LibraryOutput* output = new LibraryOutput;
  return *output;
}

void LibraryOutput::ReserveStandardStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) < 0) {
      [[maybe_unused]] const int same = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
  }
}

void LibraryOutput::Capture(bool verbose) {
  verbose_ = verbose;
  // Standard error itself may become part of what is captured.
  if (FILE* const own = fdopen(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3), "w")) told_ = own;
  log_set_quiet(true);
  log_add_callback(Sink, this, TESSALINE_LOG_ERROR);

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  const int user = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  user_ = fdopen(user, "w");
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  pipe_ = ends[0];
  const SignalsBlocked inherited;
  std::thread([this, fd = ends[0]] { ReadPipe(fd); }).detach();
}

void LibraryOutput::ReadPipe(int fd) {
  std::string rest;
  char chunk[4096];
  for (ssize_t got = 0; (got = read(fd, chunk, sizeof chunk)) > 0;) {
    rest.append(chunk, static_cast<std::size_t>(got));
    const std::lock_guard lock(mutex_);
    for (std::size_t end = 0; (end = rest.find('\n')) != std::string::npos;) {
      Tell(rest.data(), end);
      Keep(printed_, rest.substr(0, end));
      rest.erase(0, end + 1);
    }
  }
}

void LibraryOutput::Sink(log_Event* event) {
  auto* const self = static_cast<LibraryOutput*>(event->udata);
  char text[512];
  const int prefix = snprintf(text, sizeof text, "%s: ", event->file);
  vsnprintf(text + prefix, sizeof text - static_cast<std::size_t>(prefix), event->fmt, event->ap);
  const std::lock_guard lock(self->mutex_);
  self->Tell(text, strlen(text));
  Keep(self->errors_, text);
}

void LibraryOutput::Tell(const char* text, std::size_t length) const {
  if (!verbose_) return;
  fprintf(told_, "library: %s\n", Printable({text, length}).c_str());
  fflush(told_);
}

// What was printed just before is still on its way through the pipe for a moment.
void LibraryOutput::Settle() {
  if (pipe_ < 0) return;
  fflush(stdout);
  std::mutex mutex;
  std::condition_variable never;
  std::unique_lock lock(mutex);
  int waiting = 1;
  do {
    never.wait_for(lock, std::chrono::milliseconds(2));
  } while (ioctl(pipe_, FIONREAD, &waiting) == 0 && waiting > 0);
}

std::vector<std::string> LibraryOutput::Printed() {
  Settle();
  const std::lock_guard lock(mutex_);
  return {printed_.begin(), printed_.end()};
}

std::vector<std::string> LibraryOutput::Errors() {
  const std::lock_guard lock(mutex_);
  return {errors_.begin(), errors_.end()};
}

bool LibraryOutput::HasPrinted(const std::string& part) {
  Settle();
  const std::lock_guard lock(mutex_);
  return Contains(printed_, part);
}

bool LibraryOutput::HasError(const std::string& part) {
  const std::lock_guard lock(mutex_);
  return Contains(errors_, part);
}

unsigned long LibraryOutput::CountErrors(const std::string& part) {
  const std::lock_guard lock(mutex_);
  return static_cast<unsigned long>(
      std::count_if(errors_.begin(), errors_.end(),
                    [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

ErrorStreamCaptured::ErrorStreamCaptured() : kept_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
  dup2(STDOUT_FILENO, STDERR_FILENO);
}

ErrorStreamCaptured::~ErrorStreamCaptured() {
  if (kept_ < 0) return;
  dup2(kept_, STDERR_FILENO);
  close(kept_);
}

}  // namespace tool
