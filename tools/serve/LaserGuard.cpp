#include "serve/LaserGuard.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Failure.h"
#include "Gpio.h"
#include "VirtualBoard.h"
#include "serve/Spawn.h"

namespace tool::serve {
namespace {

constexpr char kOn = '1';
constexpr char kOff = '0';
constexpr char kBeat = 'b';
constexpr std::chrono::seconds kBeatEvery{1};
// Starting and stopping the acquisition do not hold up the beats.
constexpr int kPatienceMs = 5000;
constexpr const char* kTranscript = "TESSALINE_BOARD_TRANSCRIPT";

}  // namespace

LaserGuard::LaserGuard(const Model& model) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw Failure(ExitCode::kFile, fmt::format("no pipe: {}", strerror(errno)));
  }
  pipe_ = ends[1];
  // On a virtual board it has a board, and a transcript, of its own.
  std::vector<std::pair<std::string, std::string>> variables;
  const std::string transcript = Environment(kTranscript);
  if (!transcript.empty()) variables.emplace_back(kTranscript, transcript + ".guard");
  try {
    process_ = Spawn({"/proc/self/exe", "serve", "--guard", "--model", std::string(model.code())},
                     variables,
                     /*on_board=*/true, ends[0]);
  } catch (const Failure&) {
    close(ends[0]);
    close(pipe_);
    throw;
  }
  close(ends[0]);
  Tell(false);
}

LaserGuard::~LaserGuard() {
  Tell(false);
  close(pipe_);
  if (process_ > 0) waitpid(process_, nullptr, 0);
}

void LaserGuard::Tell(bool on) const {
  const char word = on ? kOn : kOff;
  if (write(pipe_, &word, 1) != 1 && on) {
    throw Failure(ExitCode::kNegative, "the process that guards the laser has gone",
                  "start the daemon anew; until then the laser stays off");
  }
}

void LaserGuard::Watch(const Model& model) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) signal(number, SIG_IGN);
  char word = kOff;
  for (;;) {
    pollfd daemon{STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&daemon, 1, word == kOn ? kPatienceMs : -1);
    if (ready == 0) break;  // it stands still with the laser on
    if (ready < 0) continue;
    char next = kOff;
    const ssize_t got = read(STDIN_FILENO, &next, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got != 1) break;
    if (next != kBeat) word = next;
  }
  if (word != kOn) return;
  const GpioLines& lines = model.family().board.gpio;
  PullGpioLow(lines.laser1);
  PullGpioLow(lines.laser2);
}

void LaserGuard::Beat() {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_beat_) return;
  next_beat_ = now + kBeatEvery;
  if (write(pipe_, &kBeat, 1) != 1) return;  // Lives() tells
}

bool LaserGuard::Lives() const {
  if (process_ > 0 && waitpid(process_, nullptr, WNOHANG) != 0) process_ = -1;
  return process_ > 0;
}

}  // namespace tool::serve
