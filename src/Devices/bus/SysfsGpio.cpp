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

SysfsGpio::SysfsGpio()
    : export_path_("/sys/class/gpio/export"), out_("out"), in_("in"), high_("1"), low_("0") {}

std::pair<std::string, std::string> SysfsGpio::GenerateDirectionAndValueBy(const std::string& pin) {
  const std::string line = "/sys/class/gpio/gpio" + pin;
  return {line + "/direction", line + "/value"};
}

SysfsGpio::Line::Line(std::string pin) : number(std::move(pin)) {
  std::tie(direction_path, value_path) = GenerateDirectionAndValueBy(number);
}

bool SysfsGpio::Drive(const Line& line, const std::string& value,
                      const GpioLineTexts& texts) const {
  return WriteFile(export_path_, O_WRONLY, line.number, texts.export_failed) &&
         WriteFile(line.direction_path, O_WRONLY, out_, texts.direction_failed) &&
         WriteFile(line.value_path, O_RDWR, value, texts.value_failed);
}

}  // namespace VeltranoSDK
