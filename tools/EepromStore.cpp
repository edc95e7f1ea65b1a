#include "EepromStore.h"

#include <fcntl.h>
#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "Failure.h"
#include "LibraryOutput.h"
#include "Nodes.h"
#include "tessaline/eeprom.h"

namespace tool::eeprom {
namespace {

void RequireBus() {
  const Node bus{"/dev/i2c-0", O_RDWR, "bus of the EEPROM",
                 "run it on the sensor, or try it with --virtual K3610"};
  const int error = TryToOpen(bus);
  if (error == 0) return;
  throw Failure(
      error == EACCES || error == EPERM ? ExitCode::kNoPermission : ExitCode::kUnreachable,
      fmt::format("cannot open {} ({}): {}", bus.path, bus.purpose, strerror(error)),
      AdviceFor(bus, error));
}

[[noreturn]] void NoAnswer(const char* what) {
  throw Failure(ExitCode::kUnreachable, fmt::format("the EEPROM cannot be {}", what),
                "it should answer at 0x50 and 0x51 of /dev/i2c-0: look with \"i2cdetect -y 0\"");
}

}  // namespace

Content Read() {
  RequireBus();
  const ErrorStreamCaptured captured;
  Content content{};
  if (ConfigRead(content.data(), static_cast<int>(content.size())) != 0) NoAnswer("read");
  return content;
}

void Write(std::span<const std::uint8_t> bytes) {
  RequireBus();
  const ErrorStreamCaptured captured;
  std::vector<unsigned char> copy(bytes.begin(), bytes.end());
  if (ConfigSave(copy.data(), static_cast<int>(copy.size())) != 0) NoAnswer("written");
}

}  // namespace tool::eeprom
