#include "Gpio.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

namespace tool {

std::optional<bool> GpioLevel(unsigned line) {
  const int fd = open(fmt::format("/sys/class/gpio/gpio{}/value", line).c_str(), O_RDONLY);
  if (fd < 0) return std::nullopt;
  char level = 0;
  const ssize_t got = read(fd, &level, 1);
  close(fd);
  if (got != 1) return std::nullopt;
  return level == '1';
}

}  // namespace tool
