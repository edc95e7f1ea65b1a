#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Device.h"

namespace board {

// One attribute file of sysfs. A missing function makes the file unreadable or unwritable.
struct SysfsAttribute {
  std::string device;  // its name in the transcript
  std::string label;   // the file, likewise
  // The whole text, including the line end; nothing if its owner is gone.
  std::function<std::optional<std::string>()> show;
  // 0 or the negative errno.
  std::function<int(std::string_view)> store;
};

// Opens it; EACCES if the flags ask for a direction it does not have. Closing releases the
// keep-alive.
OpenResult OpenSysfs(SysfsAttribute attribute, int flags, std::shared_ptr<void> keep_alive);

// A number as the kernel reads one: a sign, the prefixes 0x and 0, one line end, nothing else.
std::optional<long long> ParseNumber(std::string_view text);

// The text without the line end that `echo` adds.
std::string_view WithoutLineEnd(std::string_view text);

}  // namespace board
