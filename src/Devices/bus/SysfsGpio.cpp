#include "Devices/bus/SysfsGpio.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <tuple>

#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

bool WriteFile(const std::string& path, int flags, const std::string& text, const char* failure) {
  const int fd = OpenDevice(path.c_str(), flags);
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

bool SysfsGpio::Drive(const std::string& value) const {
  return WriteFile("/sys/class/gpio/export", O_WRONLY, pin_, texts_.export_failed) &&
         WriteFile(direction_path_, O_WRONLY, "out", texts_.direction_failed) &&
         WriteFile(value_path_, O_RDWR, value, texts_.value_failed);
}

}  // namespace VeltranoSDK
