#pragma once

#include <array>
#include <string_view>
#include <vector>

#include "tessaline/register_map.h"

namespace tool {

// A field unit of the board: the sysfs numbers of its lines.
struct GpioLines {
  unsigned laser1, laser2, red, green, blue, laser_led;
};

// How the processor's temperature file is read: raw x gain / steps + offset.
struct Thermometer {
  std::string_view file;
  double gain, steps, offset;
};

// What the products of one family have in common. The family is the first three
// characters of the model code.
struct Family {
  std::string_view prefix;
  std::string_view codes;  // the products known, one blank between
  unsigned series;
  std::string_view soc;
  std::string_view sensor;
  unsigned width, height;              // of the full sensor, pixels
  unsigned strip_width, strip_height;  // their product: bytes of a strip buffer
  unsigned spacing;  // microseconds between triggers that the whole sensor can follow
  std::string_view sensor_bus;
  std::string_view laser_bus;  // potentiometer and DA converter
  std::string_view pot;
  bool has_dma_buffer;
  bool sensor_acknowledges;  // on I2C, a chip that is missing is noticed
  bool has_sensor_thermometer;
  unsigned bytes_per_point, arm_bytes_per_point;
  GpioLines gpio;
  Thermometer thermometer;
  VeltranoSDK::fpga::RegionBases regions;
};

inline constexpr Thermometer kZynqThermometer{
    "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw", 503.975, 4096, -273.15};
inline constexpr Thermometer kZynqMpThermometer{
    "/sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw", 509.314, 65536, -280.23};

inline constexpr std::array kFamilies{
    Family{.prefix = "K36",
           .codes = "K3610 K3620 K3630 K3640 K3650 K3660",
           .series = 21,
           .soc = "Zynq-7000",
           .sensor = "IMX273",
           .width = 1456,
           .height = 1088,
           .strip_width = 1024,
           .strip_height = 640,
           .spacing = 4000,
           .sensor_bus = "/dev/i2c-0",
           .laser_bus = "/dev/i2c-1",
           .pot = "AD5175",
           .has_dma_buffer = false,
           .sensor_acknowledges = true,
           .has_sensor_thermometer = true,
           .bytes_per_point = 8,
           .arm_bytes_per_point = 8,
           .gpio = {907, 934, 961, 962, 963, 969},
           .thermometer = kZynqThermometer,
           .regions = VeltranoSDK::fpga::kZynqRegions},
    Family{.prefix = "K37",
           .codes = "K3710 K3720 K3730 K3740 K3710ch16 K3720ch16 K3730ch16 K3740ch16 "
                    "K3710ch16arm_rebuild K3720ch16arm_rebuild K3730ch16arm_rebuild "
                    "K3740ch16arm_rebuild",
           .series = 22,
           .soc = "Zynq-7000",
           .sensor = "IMX252",
           .width = 2064,
           .height = 1544,
           .strip_width = 1024,
           .strip_height = 640,
           .spacing = 8000,
           .sensor_bus = "/dev/i2c-0",
           .laser_bus = "/dev/i2c-1",
           .pot = "AD5175",
           .has_dma_buffer = false,
           .sensor_acknowledges = true,
           .has_sensor_thermometer = true,
           .bytes_per_point = 8,
           .arm_bytes_per_point = 2,
           .gpio = {907, 934, 961, 962, 963, 969},
           .thermometer = kZynqThermometer,
           .regions = VeltranoSDK::fpga::kZynqRegions},
    Family{.prefix = "K38",
           .codes = "K3810 K3820 K3830 K3840 K3850 K3860",
           .series = 23,
           .soc = "Zynq-7000",
           .sensor = "GMAX2509",
           .width = 4200,
           .height = 2048,
           .strip_width = 2048,
           .strip_height = 640,
           .spacing = 4000,
           .sensor_bus = "/dev/spidev1.0",
           .laser_bus = "/dev/i2c-0",
           .pot = "AD5175",
           .has_dma_buffer = false,
           .sensor_acknowledges = false,
           .has_sensor_thermometer = true,
           .bytes_per_point = 8,
           .arm_bytes_per_point = 8,
           .gpio = {921, 934, 965, 964, 966, 969},
           .thermometer = kZynqThermometer,
           .regions = VeltranoSDK::fpga::kZynqRegions},
    Family{.prefix = "K39",
           .codes = "K3910 K3920 K3910arm_rebuild K3920arm_rebuild",
           .series = 24,
           .soc = "Zynq-7000",
           .sensor = "GSPRINT6502BSI",
           .width = 2048,
           .height = 1152,
           .strip_width = 1024,
           .strip_height = 640,
           .spacing = 4000,
           .sensor_bus = "/dev/spidev1.0",
           .laser_bus = "/dev/i2c-0",
           .pot = "TPL0401B",
           .has_dma_buffer = true,
           .sensor_acknowledges = false,
           .has_sensor_thermometer = true,
           .bytes_per_point = 8,
           .arm_bytes_per_point = 2,
           .gpio = {921, 934, 965, 964, 966, 969},
           .thermometer = kZynqThermometer,
           .regions = VeltranoSDK::fpga::kZynqRegions},
    Family{.prefix = "K40",
           .codes = "K4010 K4020 K4030 K4040 K4010arm_rebuild K4020arm_rebuild "
                    "K4030arm_rebuild K4040arm_rebuild",
           .series = 25,
           .soc = "Zynq UltraScale+",
           .sensor = "e2v Flash 4K",
           .width = 4096,
           .height = 1080,
           .strip_width = 8192,
           .strip_height = 2048,
           .spacing = 4000,
           .sensor_bus = "/dev/spidev0.0",
           .laser_bus = "/dev/i2c-0",
           .pot = "TPL0401B",
           .has_dma_buffer = true,
           .sensor_acknowledges = false,
           .has_sensor_thermometer = false,
           .bytes_per_point = 8,
           .arm_bytes_per_point = 2,
           .gpio = {363, 364, 417, 416, 418, 0},
           .thermometer = kZynqMpThermometer,
           .regions = VeltranoSDK::fpga::kZynqMpRegions},
};

// Codes as an integrator writes them: "K3610", "K3920arm_rebuild".
class Model {
 public:
  // Null family: nobody makes such a product.
  explicit Model(std::string_view code);

  bool known() const { return family_ != nullptr; }
  const std::string_view code() const { return code_; }
  const Family& family() const { return *family_; }
  unsigned height() const;
  unsigned bytes_per_point() const;
  std::string_view variant() const;

 private:
  bool Has(std::string_view word) const { return code_.find(word) != std::string_view::npos; }
  bool RebuildsOnProcessor() const;

  std::string_view code_;
  const Family* family_ = nullptr;
};

std::vector<std::string_view> CodesOf(const Family& family);

}  // namespace tool
