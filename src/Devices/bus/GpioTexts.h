#pragma once

namespace VeltranoSDK {

// Printed when the file of one of a line's three steps cannot be opened.
struct GpioLineTexts {
  const char* export_failed;
  const char* direction_failed;
  const char* value_failed;
};

// Switching the laser off reports with the texts of switching it on.
inline constexpr GpioLineTexts kLaserPin1Texts{
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY).",
    "error: Laser::Open() open(sysfs_gpio_pin1_direction_.c_str(), O_WRONLY).",
    "error: Laser::Open() open(sysfs_gpio_pin1_value_.c_str(), O_RDWR).",
};
inline constexpr GpioLineTexts kLaserPin28Texts{
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY)2.",
    "error: Laser::Open() open(sysfs_gpio_pin28_direction_.c_str(), O_WRONLY).",
    "error: Laser::Open() open(sysfs_gpio_pin28_value_.size(), O_RDWR).",
};

inline constexpr GpioLineTexts kLaserLedTexts{
    "error: LaserLed::Open() open(sysfs_gpio_export_, O_WRONLY).",
    "error: LaserLed::Open() open(sysfs_gpio_pin63_direction_.c_str(), O_WRONLY).",
    "error: LaserLed::Open() open(sysfs_gpio_pin63_value_.c_str(), O_RDWR).",
};

inline constexpr GpioLineTexts kRedTexts{
    "error: RangeLed::SetR() open(sysfs_gpio_export_, O_WRONLY).",
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_direction_.c_str(), O_WRONLY).",
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_value_.c_str(), O_RDWR).",
};
inline constexpr GpioLineTexts kGreenTexts{
    "error: RangeLed::SetG() open(sysfs_gpio_export_, O_WRONLY).",
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_direction_.c_str(), O_WRONLY).",
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_value_.c_str(), O_RDWR).",
};
inline constexpr GpioLineTexts kBlueTexts{
    "error: RangeLed::SetB() open(sysfs_gpio_export_, O_WRONLY).",
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_direction_.c_str(), O_WRONLY).",
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_value_.c_str(), O_RDWR).",
};

}  // namespace VeltranoSDK
