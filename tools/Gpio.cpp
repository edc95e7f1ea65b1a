#include "Gpio.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

namespace tool {
namespace {

bool WriteTo(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(fd);
  return written;
}

}  // namespace

std::optional<bool> GpioLevel(unsigned line) {
  const int fd = open(fmt::format("/sys/class/gpio/gpio{}/value", line).c_str(), O_RDONLY);
  if (fd < 0) return std::nullopt;
  char level = 0;
  const ssize_t got = read(fd, &level, 1);
  close(fd);
  if (got != 1) return std::nullopt;
  return level == '1';
}

bool PullGpioLow(unsigned line) {
  const std::string folder = fmt::format("/sys/class/gpio/gpio{}", line);
  WriteTo("/sys/class/gpio/export", std::to_string(line));  // refused if it is exported
  WriteTo(folder + "/direction", "out");
  return WriteTo(folder + "/value", "0");
}

}  // namespace tool
