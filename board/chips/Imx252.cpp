#include "chips/Imx252.h"

namespace board {
namespace {

constexpr unsigned kWidth = 2064;
constexpr unsigned kHeight = 1544;
constexpr unsigned kFrameLines = 1582;
constexpr unsigned kLineClocks = 310;
constexpr unsigned kType = 252;
constexpr unsigned kMonochrome = 0x80;

constexpr std::array kPowerUp{
    SensorRegisterValue{0x3000, 0x01},  // standby
    SensorRegisterValue{0x3010, kFrameLines & 0xFF},
    SensorRegisterValue{0x3011, kFrameLines >> 8},
    SensorRegisterValue{0x3014, kLineClocks & 0xFF},
    SensorRegisterValue{0x3015, kLineClocks >> 8},
    SensorRegisterValue{0x3148, kType << 6 & 0xC0},
    SensorRegisterValue{0x3149, kType >> 2 | kMonochrome},
    SensorRegisterValue{0x3314, kWidth & 0xFF},
    SensorRegisterValue{0x3315, kWidth >> 8},
    SensorRegisterValue{0x3316, kHeight & 0xFF},
    SensorRegisterValue{0x3317, kHeight >> 8},
};

// 0x11 reads out every other pixel in both directions, 0x02 every other row.
ReadoutSteps Steps(std::uint8_t readout_mode) {
  switch (readout_mode) {
    case 0x11:
      return {2, 2};
    case 0x02:
      return {1, 2};
    default:
      return {1, 1};
  }
}

}  // namespace

Imx252::Imx252(BoardMemory& memory)
    : SonySensor(memory, {0x10, kWidth, kHeight, kPowerUp, Steps}) {}

}  // namespace board
