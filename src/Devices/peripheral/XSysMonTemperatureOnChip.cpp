#include "Devices/peripheral/XSysMonTemperatureOnChip.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>

#include "log/Log.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

// Room for a number, its newline and the terminating zero.
using Text = std::array<char, 32>;

// One read may return only part of the line.
Text ReadLine(int fd) {
  Text text{};
  for (std::size_t size = 0; size + 1 < text.size() && strchr(text.data(), '\n') == nullptr;) {
    const ssize_t got =
        Uninterrupted([&] { return read(fd, text.data() + size, text.size() - 1 - size); });
    if (got <= 0) break;
    size += static_cast<std::size_t>(got);
  }
  return text;
}

}  // namespace

float XSysMonTemperatureOnChip::GetTemp() const {
  const auto& [file, gain, steps, offset] = thermometer_;
  unsigned int raw = 0;
  if (const int fd = OpenDevice(file, O_RDONLY); fd >= 0) {
    if (sscanf(ReadLine(fd).data(), "%u", &raw) != 1) raw = 0;
    close(fd);
  } else {
    LogError()("fopen %s failed!\n", file);
  }
  const double scaled = static_cast<double>(static_cast<float>(raw)) * gain;
  const auto degrees = static_cast<float>(scaled / steps + offset);
  LogTrace()("GetTemp succuffully. temperature %f\n", static_cast<double>(degrees));
  return degrees;
}

}  // namespace VeltranoSDK
