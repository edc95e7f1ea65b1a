#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Device.h"

namespace board {

// One attribute file of sysfs. If a function is missing, the file cannot be read or written.
struct SysfsAttribute {
  std::string device;  // its name in the transcript
  std::string label;   // the file's name in the transcript
  // Returns the whole text, including the line end, or nothing if its owner is gone.
  std::function<std::optional<std::string>()> show;
  // Returns 0 or the negative errno.
  std::function<int(std::string_view)> store;
};

// Opens the file. The error is EACCES if the flags request a direction that the file does not have.
// Closing the file releases `keep_alive`.
OpenResult OpenSysfs(SysfsAttribute attribute, int flags, std::shared_ptr<void> keep_alive);

// Parses a number as the kernel does: a sign, the prefixes 0x and 0, one line end, nothing else.
std::optional<long long> ParseNumber(std::string_view text);

// The text without the line end that `echo` adds.
std::string_view WithoutLineEnd(std::string_view text);

}  // namespace board
