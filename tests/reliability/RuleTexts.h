#pragma once

#include <string_view>

namespace reliability {

// Names that several rules use, and texts too long for a rule.

inline constexpr std::string_view kStartUp = "RegisterHardwareInit";
inline constexpr std::string_view kEepromCalls =
    "ConfigSave(100)|ConfigSave(272)|ConfigRead(100)|ConfigRead(272)|"
    "eeprom_page_write|eeprom_page_read";
inline constexpr std::string_view kSaves = "ConfigSave(100)|ConfigSave(272)";
inline constexpr std::string_view kRangeLed =
    "error: RangeLed::SetR() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_value_.c_str(), O_RDWR).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_value_.c_str(), O_RDWR).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_value_.c_str(), O_RDWR).\n";
inline constexpr std::string_view kStartUpLights =
    "error: RangeLed::SetR() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_value_.c_str(), O_RDWR).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_value_.c_str(), O_RDWR).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_direction_.c_str(), O_WRONLY).\n|"
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_value_.c_str(), O_RDWR).\n|"
    "error: LaserLed::Open() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: LaserLed::Open() open(sysfs_gpio_pin63_direction_.c_str(), O_WRONLY).\n|"
    "error: LaserLed::Open() open(sysfs_gpio_pin63_value_.c_str(), O_RDWR).\n";
inline constexpr std::string_view kLaser =
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY).\n|"
    "error: Laser::Open() open(sysfs_gpio_pin1_direction_.c_str(), O_WRONLY).\n|"
    "error: Laser::Open() open(sysfs_gpio_pin1_value_.c_str(), O_RDWR).\n|"
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY)2.\n|"
    "error: Laser::Open() open(sysfs_gpio_pin28_direction_.c_str(), O_WRONLY).\n|"
    "error: Laser::Open() open(sysfs_gpio_pin28_value_.size(), O_RDWR).\n";
inline constexpr std::string_view kLaserPowerCalls = "SetLaserPower|DAWrite";
inline constexpr std::string_view kNoVideo = "initialize v4l2 error!";

}  // namespace reliability
