#include "chips/Imx273.h"

namespace board {
namespace {

constexpr unsigned kWidth = 1456;
constexpr unsigned kHeight = 1088;
constexpr unsigned kFrameLines = 1130;
constexpr unsigned kLineClocks = 238;
constexpr unsigned kType = 273;
constexpr unsigned kMonochrome = 0x80;

constexpr std::array kPowerUp{
    SensorRegisterValue{0x3000, 0x01},  // standby
    SensorRegisterValue{0x3010, kFrameLines & 0xFF},
    SensorRegisterValue{0x3011, kFrameLines >> 8},
    SensorRegisterValue{0x3014, kLineClocks},
    SensorRegisterValue{0x3148, kType << 6 & 0xC0},
    SensorRegisterValue{0x3149, kType >> 2 | kMonochrome},
    SensorRegisterValue{0x3314, kWidth & 0xFF},
    SensorRegisterValue{0x3315, kWidth >> 8},
    SensorRegisterValue{0x3316, kHeight & 0xFF},
    SensorRegisterValue{0x3317, kHeight >> 8},
};

// 0x11 and 0x22 read out every other pixel in both directions.
ReadoutSteps Steps(std::uint8_t readout_mode) {
  return readout_mode == 0x11 || readout_mode == 0x22 ? ReadoutSteps{2, 2} : ReadoutSteps{1, 1};
}

}  // namespace

Imx273::Imx273(BoardMemory& memory)
    : SonySensor(memory, {0x36, kWidth, kHeight, kPowerUp, Steps}) {}

}  // namespace board
