#include "EepromStore.h"

#include <fcntl.h>
#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
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

template <typename Use>
void ForPagesThatDiffer(const Content& a, const Content& b, Use use) {
  for (std::size_t at = 0; at < kBytes; at += kPageBytes) {
    if (!std::equal(a.begin() + at, a.begin() + at + kPageBytes, b.begin() + at)) use(at);
  }
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

void WriteChanges(const Content& before, const Content& after) {
  constexpr std::size_t kHalf = 256;
  constexpr unsigned char kLowerHalf = 0x50;
  constexpr unsigned char kUpperHalf = 0x51;
  // The chip does not answer while it stores a page.
  constexpr std::chrono::milliseconds kStoring{10};
  RequireBus();
  const ErrorStreamCaptured captured;
  ForPagesThatDiffer(before, after, [&](std::size_t at) {
    const auto word = static_cast<unsigned char>(at % kHalf);
    if (eeprom_page_write(word, &after[at], kPageBytes, at < kHalf ? kLowerHalf : kUpperHalf) !=
        0) {
      NoAnswer("written");
    }
    std::this_thread::sleep_for(kStoring);
  });
}

std::size_t PagesThatDiffer(const Content& a, const Content& b) {
  std::size_t pages = 0;
  ForPagesThatDiffer(a, b, [&](std::size_t) { ++pages; });
  return pages;
}

}  // namespace tool::eeprom
