#pragma once

#include <array>
#include <string_view>

#include "tessaline/register_map.h"

namespace board {

enum class SensorKind { kImx273, kImx252, kGmax2509, kGsprint6502, kE2vFlash4k };
enum class PotKind { kAd5175, kTpl0401 };

// What distinguishes the boards of the product families.
struct BoardProfile {
  std::string_view family;  // first characters of the model code
  VeltranoSDK::fpga::RegionBases regions;
  SensorKind sensor;
  unsigned sensor_bus;  // /dev/i2c-<n> or /dev/spidev<n>.0
  PotKind pot;
  unsigned laser_bus;            // of potentiometer and DA converter
  std::array<unsigned, 6> gpio;  // laser 1, laser 2, red, green, blue, laser LED
  std::string_view temperature_file;
  unsigned temperature_raw;    // about 40 degrees
  std::uint32_t fpga_version;  // series in the upper, version in the lower half
};

inline constexpr std::string_view kZynqTemperatureFile =
    "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw";
inline constexpr std::string_view kZynqMpTemperatureFile =
    "/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw";
inline constexpr unsigned kZynqTemperatureRaw = 2545;
inline constexpr unsigned kZynqMpTemperatureRaw = 41200;

inline constexpr std::array<BoardProfile, 5> kBoardProfiles{{
    {"K36",
     VeltranoSDK::fpga::kZynqRegions,
     SensorKind::kImx273,
     0,
     PotKind::kAd5175,
     1,
     {907, 934, 961, 962, 963, 969},
     kZynqTemperatureFile,
     kZynqTemperatureRaw,
     0x0015'0100},
    {"K37",
     VeltranoSDK::fpga::kZynqRegions,
     SensorKind::kImx252,
     0,
     PotKind::kAd5175,
     1,
     {907, 934, 961, 962, 963, 969},
     kZynqTemperatureFile,
     kZynqTemperatureRaw,
     0x0016'0100},
    {"K38",
     VeltranoSDK::fpga::kZynqRegions,
     SensorKind::kGmax2509,
     1,
     PotKind::kAd5175,
     0,
     {921, 934, 965, 964, 966, 969},
     kZynqTemperatureFile,
     kZynqTemperatureRaw,
     0x0017'0100},
    {"K39",
     VeltranoSDK::fpga::kZynqRegions,
     SensorKind::kGsprint6502,
     1,
     PotKind::kTpl0401,
     0,
     {921, 934, 965, 964, 966, 969},
     kZynqTemperatureFile,
     kZynqTemperatureRaw,
     0x0018'0100},
    {"K40",
     VeltranoSDK::fpga::kZynqMpRegions,
     SensorKind::kE2vFlash4k,
     0,
     PotKind::kTpl0401,
     0,
     {363, 364, 417, 416, 418, 0},
     kZynqMpTemperatureFile,
     kZynqMpTemperatureRaw,
     0x0019'0100},
}};

}  // namespace board
