#include "Devices/bus/SysfsGpio.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <tuple>

#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

// No heap: atexit functions call CloseLaser(), and SIGINT may have interrupted malloc().
bool WriteFile(const char* path, int flags, std::string_view text, const char* failure) {
  const int fd = OpenDevice(path, flags);
  if (fd < 0) {
    puts(failure);
    return false;
  }
  if (!text.empty()) {
    [[maybe_unused]] const ssize_t written =
        Uninterrupted([&] { return write(fd, text.data(), text.size()); });
  }
  close(fd);
  return true;
}

}  // namespace

SysfsGpio::SysfsGpio(std::string pin, const GpioLineTexts& texts)
    : pin_(std::move(pin)), texts_(texts) {
  std::tie(direction_path_, value_path_) = GenerateDirectionAndValueBy(pin_);
}

std::pair<std::string, std::string> SysfsGpio::GenerateDirectionAndValueBy(const std::string& pin) {
  const std::string line = "/sys/class/gpio/gpio" + pin;
  return {line + "/direction", line + "/value"};
}

bool SysfsGpio::Drive(std::string_view value) const {
  return WriteFile("/sys/class/gpio/export", O_WRONLY, pin_, texts_.export_failed) &&
         WriteFile(direction_path_.c_str(), O_WRONLY, "out", texts_.direction_failed) &&
         WriteFile(value_path_.c_str(), O_RDWR, value, texts_.value_failed);
}

}  // namespace VeltranoSDK
