#include "watch/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "Interrupt.h"

namespace tool {
namespace {

constexpr const char* kEnter = "\033[?1049h\033[?25l";
constexpr const char* kLeave = "\033[?25h\033[?1049l";
constexpr const char* kHome = "\033[H";
constexpr const char* kClearLine = "\033[K";
constexpr const char* kClearBelow = "\033[J";

constexpr winsize kUsual{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};

winsize SizeOf(int fd) {
  winsize size{};
  const bool known = ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0;
  return known ? size : kUsual;
}

// What the stop of the process needs; a signal handler uses it.
int screen = -1;
bool has_keyboard = false;
termios keyboard_before;

void SendAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count <= 0) return;  // a closed terminal is noticed elsewhere
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

void TakeOver() {
  if (screen < 0) return;
  SendAll(screen, kEnter);
  // In the background the keyboard is another program's.
  has_keyboard = isatty(STDIN_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp() &&
                 tcgetattr(STDIN_FILENO, &keyboard_before) == 0;
  if (!has_keyboard) return;
  termios keys = keyboard_before;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  tcsetattr(STDIN_FILENO, TCSANOW, &keys);
}

void GiveBack() {
  if (screen < 0) return;
  if (has_keyboard) tcsetattr(STDIN_FILENO, TCSANOW, &keyboard_before);
  has_keyboard = false;
  SendAll(screen, kLeave);
}

}  // namespace

bool IsScreen(int fd) {
  const char* const kind = std::getenv("TERM");
  return isatty(fd) != 0 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
}

Terminal::Terminal(int fd) : fd_(fd), present_(IsScreen(fd)) {}

Terminal::~Terminal() {
  if (!entered_) return;
  GiveBack();
  screen = -1;
}

unsigned Terminal::columns() const { return SizeOf(fd_).ws_col; }

unsigned Terminal::rows() const { return SizeOf(fd_).ws_row; }

void Terminal::Enter() {
  static std::once_flag once;
  std::call_once(once, [] { AtStop(GiveBack, TakeOver); });
  entered_ = true;
  screen = fd_;
  TakeOver();
}

bool Terminal::WantsToQuit() const {
  pollfd keys{STDIN_FILENO, POLLIN, 0};
  while (has_keyboard && poll(&keys, 1, 0) == 1) {
    char key = 0;
    if (read(STDIN_FILENO, &key, 1) != 1) return false;
    if (key == 'q' || key == 'Q') return true;
  }
  return false;
}

void Terminal::Show(const std::string& picture) {
  std::string text = kHome;
  for (const char c : picture) {
    if (c == '\n') text += kClearLine;
    text += c;
  }
  SendAll(fd_, text + kClearLine + kClearBelow);
}

}  // namespace tool
