#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Device.h"

namespace board {

// One attribute file of sysfs. A function that is missing makes the file
// unreadable or unwritable.
struct SysfsAttribute {
  std::string device;  // as the transcript names it
  std::string label;   // the file, likewise
  // The whole text, line end included; nothing: what it belongs to is gone.
  std::function<std::optional<std::string>()> show;
  // 0 or the negative errno.
  std::function<int(std::string_view)> store;
};

// Opens it; EACCES when the flags ask for a direction it does not have. The
// keep-alive is released at the close.
OpenResult OpenSysfs(SysfsAttribute attribute, int flags, std::shared_ptr<void> keep_alive);

// A number as the kernel reads one: sign, 0x and 0 prefixes, one line end, no
// other ornament.
std::optional<long long> ParseNumber(std::string_view text);

// The text without the line end that `echo` puts there.
std::string_view WithoutLineEnd(std::string_view text);

}  // namespace board
