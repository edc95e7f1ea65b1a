#pragma once

#include <array>
#include <string_view>

namespace VeltranoSDK {

// What differs from board to board: device nodes of the buses, and sysfs numbers
// of the lines laser 1, laser 2, red, green, blue, laser LED.
struct BoardDescription {
  std::string_view da_chip_i2c_dev;
  std::string_view digital_pot_i2c_dev;
  std::string_view sensor_bus_dev;
  std::array<std::string_view, 6> gpio_lines;
};

// Zynq-7000 with a sensor on I2C: series 21 and 22.
inline constexpr BoardDescription kZynqI2cSensorBoard{
    "/dev/i2c-1", "/dev/i2c-1", "/dev/i2c-0", {"907", "934", "961", "962", "963", "969"}};

// Zynq-7000 with a sensor on SPI: series 23 and 24.
inline constexpr BoardDescription kZynqSpiSensorBoard{
    "/dev/i2c-0", "/dev/i2c-0", "/dev/spidev1.0", {"921", "934", "965", "964", "966", "969"}};

// ZynqMP: series 25.
inline constexpr BoardDescription kZynqMpBoard{
    "/dev/i2c-0", "/dev/i2c-0", "/dev/spidev0.0", {"363", "364", "417", "416", "418", "0"}};

}  // namespace VeltranoSDK
