#pragma once

#include <string>
#include <utility>

#include "Devices/bus/GpioTexts.h"

namespace VeltranoSDK {

// The legacy sysfs GPIO interface: its fixed texts, and the three steps that drive
// a line.
class SysfsGpio {
 public:
  SysfsGpio();

  // Paths of a pin's direction file and of its value file.
  static std::pair<std::string, std::string> GenerateDirectionAndValueBy(const std::string& pin);

 protected:
  struct Line {
    explicit Line(std::string pin);

    std::string number;
    std::string direction_path;
    std::string value_path;
  };

  // Exports the line, makes it an output and writes `value` (an empty one: nothing).
  // Only the opens are checked: the kernel refuses to export a line a second time.
  bool Drive(const Line& line, const std::string& value, const GpioLineTexts& texts) const;

  std::string export_path_;
  std::string out_;
  std::string in_;
  std::string high_;
  std::string low_;
};

}  // namespace VeltranoSDK
