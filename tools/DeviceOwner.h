#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tool {

// A process that has a device.
struct DeviceOwner {
  pid_t process;
  std::string program;

  std::string Name() const;  // "scanner (process 123)"
};

// Another process that has this device node open, by whatever name. The kernel tells ordinary users
// about their own processes only, and root about all.
std::optional<DeviceOwner> FindOwner(const std::string& node);

}  // namespace tool
