#include "watch/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

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

}  // namespace

Terminal::Terminal(int fd) : fd_(fd), present_(isatty(fd) != 0) {}

Terminal::~Terminal() {
  if (entered_) Send(kLeave);
}

unsigned Terminal::columns() const { return SizeOf(fd_).ws_col; }

unsigned Terminal::rows() const { return SizeOf(fd_).ws_row; }

void Terminal::Enter() {
  entered_ = true;
  Send(kEnter);
}

void Terminal::Show(const std::string& picture) {
  std::string text = kHome;
  for (const char c : picture) {
    if (c == '\n') text += kClearLine;
    text += c;
  }
  Send(text + kClearLine + kClearBelow);
}

void Terminal::Send(const std::string& text) const {
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t count = write(fd_, text.data() + sent, text.size() - sent);
    if (count <= 0) return;  // a closed terminal is noticed elsewhere
    sent += static_cast<std::size_t>(count);
  }
}

}  // namespace tool
