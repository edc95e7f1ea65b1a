#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "Devices/bus/GpioTexts.h"

namespace VeltranoSDK {

// An output line of the legacy sysfs GPIO interface.
class SysfsGpio {
 public:
  static constexpr char kHigh[] = "1";
  static constexpr char kLow[] = "0";

  // The texts must outlive the object.
  SysfsGpio(std::string pin, const GpioLineTexts& texts);

  // Paths of a pin's direction file and of its value file.
  static std::pair<std::string, std::string> GenerateDirectionAndValueBy(const std::string& pin);

  // Exports the line, makes it an output and writes `value` (nothing if empty). Only the opens are
  // checked: the kernel refuses to export a line a second time.
  bool Drive(std::string_view value) const;

 private:
  std::string pin_;
  std::string direction_path_;
  std::string value_path_;
  const GpioLineTexts& texts_;
};

}  // namespace VeltranoSDK
