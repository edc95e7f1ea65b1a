#pragma once

#include <array>
#include <string_view>

namespace reliability {

// What must become of a failed call.
enum class Effect {
  kTold,       // the texts and the result, the program goes on
  kRetried,    // the texts; every result is as without the failure
  kUnchecked,  // whatever it reads or leaves undone, the program goes on
  kHangs,      // the texts, and no register is touched any more
};

// In which call, made by whom, and what must be seen. Alternatives are separated
// by '|'; empty means any. The first rule that fits counts.
struct Rule {
  std::string_view models;  // first characters
  std::string_view device;
  std::string_view operation;
  std::string_view during;  // the exported function
  bool cut_short;           // for calls cut short; the others are for both
  Effect effect;
  // Each must be printed. {} is the text of the errno, EIO for a call cut short.
  std::array<std::string_view, 2> texts;
  std::string_view result;  // of that function
  std::string_view why;
};

inline constexpr std::string_view kStartUp = "RegisterHardwareInit";
inline constexpr std::string_view kEepromCalls = "ConfigSave|ConfigRead";
inline constexpr std::string_view kLaserPowerCalls = "SetLaserPower|DAWrite";
inline constexpr std::string_view kNoVideo = "initialize v4l2 error!";

inline constexpr std::array kRules{
    // Registers
    Rule{"", "fpga", "open", "", false, Effect::kHangs, {"open(/dev/mem) failed."}, "",
         "a board whose registers were out of reach is in no known state: the lock stays taken"},
    Rule{"", "fpga", "mmap", "", false, Effect::kUnchecked, {}, "",
         "a register that cannot be mapped reads as all ones, and a write to it is lost"},

    // Lines
    Rule{"", "gpio", "open", kStartUp, false, Effect::kTold,
         {"error: RangeLed::Set|error: LaserLed::Open() open(",
          "error: RangeLed SetColor(RangeLed::Color::BLACK) |error: LaserLed Close() "},
         "0", "a light that does not go out keeps no sensor from starting"},
    Rule{"", "gpio", "open", "LedControl", false, Effect::kTold, {"error: RangeLed::Set"}, "-1",
         ""},
    Rule{"", "gpio", "open", "OpenLaser|CloseLaser", false, Effect::kTold,
         {"error: Laser::Open() open(|error: LaserLed::Open() open("}, "-1", ""},
    Rule{"", "gpio", "write", "", false, Effect::kUnchecked, {}, "",
         "exporting a line twice fails in the kernel, so no write to a line is looked at"},

    // Settings store
    Rule{"", "i2c-", "open", kEepromCalls, false, Effect::kTold,
         {"open eeprom: {}", "ConfigSave error!|ConfigRead error!"}, "-1", ""},
    Rule{"", "i2c-", "I2C_RDWR", kEepromCalls, false, Effect::kTold,
         {"ioctl: {}\npage_write error|ioctl: {}\npage_read error",
          "ConfigSave error!|ConfigRead error!"},
         "-1", ""},
    Rule{"", "i2c-", "I2C_TIMEOUT|I2C_RETRIES", kEepromCalls, false, Effect::kRetried, {}, "",
         "the adapter's own time-out and retries do as well"},

    // Laser power
    Rule{"", "i2c-", "open", kLaserPowerCalls, false, Effect::kTold,
         {"I2cDev::Open() Unable to open i2c control file: {}"}, "-1", ""},
    Rule{"", "i2c-", "I2C_RETRIES|I2C_RDWR", kLaserPowerCalls, false, Effect::kTold, {}, "-1", ""},

    // Sony sensors
    Rule{"K36|K37", "i2c-", "open", "", false, Effect::kRetried,
         {"I2cDev::Open() Unable to open i2c control file: {}"}, "",
         "an access to the sensor is tried ten times"},
    Rule{"K36|K37", "i2c-", "I2C_RETRIES|I2C_RDWR", "", false, Effect::kRetried, {}, "",
         "an access to the sensor is tried ten times"},

    // Sensors on SPI
    Rule{"", "spi", "SPI_IOC_MESSAGE", "", true, Effect::kUnchecked, {}, "",
         "the driver transfers all or nothing; any positive number of bytes is taken for all"},
    Rule{"", "spi", "open", "", false, Effect::kTold, {"SpiDev::Open error! spidev_name:/dev/spidev"},
         "", ""},
    Rule{"", "spi", "SPI_IOC_WR_MODE", "", false, Effect::kTold, {"SpiDev::SetOpt wr_mode"}, "", ""},
    Rule{"", "spi", "SPI_IOC_RD_MODE", "", false, Effect::kTold, {"SpiDev::SetOpt rd_mode"}, "", ""},
    Rule{"", "spi", "SPI_IOC_WR_LSB_FIRST", "", false, Effect::kTold,
         {"SpiDev::SetOpt wr_lsb_fist"}, "", ""},
    Rule{"", "spi", "SPI_IOC_RD_LSB_FIRST", "", false, Effect::kTold,
         {"SpiDev::SetOpt rd_lsb_fist"}, "", ""},
    Rule{"", "spi", "SPI_IOC_WR_BITS_PER_WORD", "", false, Effect::kTold,
         {"SpiDev::SetOpt wr bits_per_word"}, "", ""},
    Rule{"", "spi", "SPI_IOC_RD_BITS_PER_WORD", "", false, Effect::kTold,
         {"SpiDev::SetOpt rd bits_per_word"}, "", ""},
    Rule{"", "spi", "SPI_IOC_WR_MAX_SPEED_HZ", "", false, Effect::kTold,
         {"SpiDev::SetOpt wr max_speed_hz"}, "", ""},
    Rule{"", "spi", "SPI_IOC_RD_MAX_SPEED_HZ", "", false, Effect::kTold,
         {"SpiDev::SetOpt rd max_speed_hz"}, "", ""},
    Rule{"", "spi", "SPI_IOC_MESSAGE", "", false, Effect::kTold, {"SpiDev::DoMsg error"}, "", ""},
    Rule{"", "spi", "write", "", false, Effect::kTold, {"SpiDev::DoWrite error"}, "", ""},

    // Streams
    Rule{"", "video", "open", "", false, Effect::kTold, {"v4l2 open file failed: {}", kNoVideo}, "0",
         ""},
    Rule{"", "video", "VIDIOC_QUERYCAP", "", false, Effect::kTold,
         {"v4l2 VIDIOC_QUERYCAP failed", kNoVideo}, "0", ""},
    Rule{"", "video", "VIDIOC_TRY_FMT", "", false, Effect::kTold,
         {"v4l2 VIDIOC_TRY_FMT failed: {}, width"}, "", ""},
    Rule{"", "video", "VIDIOC_S_FMT", "", false, Effect::kTold,
         {"v4l2 VIDIOC_S_FMT failed: {}, width"}, "", ""},
    Rule{"", "video", "VIDIOC_REQBUFS", "", false, Effect::kTold,
         {"v4l2 VIDIOC_REQBUFS failed: {}", kNoVideo}, "0", ""},
    Rule{"", "video", "VIDIOC_QUERYBUF", "", false, Effect::kTold,
         {"v4l2 VIDIOC_QUERYBUF failed: {}", kNoVideo}, "0", ""},
    Rule{"", "video", "mmap", "", false, Effect::kTold, {"v4l2 mmap failed!", kNoVideo}, "0", ""},
    Rule{"", "video", "VIDIOC_STREAMON", "", false, Effect::kTold,
         {"v4l2 VIDIOC_STREAMON failed: {}", kNoVideo}, "0", ""},
    Rule{"", "video", "VIDIOC_QBUF", "", false, Effect::kTold, {"v4l2 VIDIOC_QBUF failed: {}"}, "",
         ""},
    Rule{"", "video", "VIDIOC_DQBUF", "", false, Effect::kTold, {"v4l2 VIDIOC_DQBUF failed: {}"},
         "", ""},
    Rule{"", "udmabuf0", "open", "", false, Effect::kTold,
         {"UdmaBuf mmap!|sync_offset open failed!|sync_size open failed!|"
          "sync_direction open failed!|sync_for_cpu open failed!|sync_for_device open failed!"},
         "0", ""},
    Rule{"", "udmabuf0", "mmap", "", false, Effect::kTold, {"UdmaBuf mmap failed!", kNoVideo}, "0",
         ""},
    Rule{"", "udmabuf0", "write", "", false, Effect::kRetried, {}, "",
         "the driver takes a cache request or not; there is nobody to tell"},

    // Temperature, interrupts
    Rule{"", "iio", "open", "", false, Effect::kTold, {"fopen /sys/"}, "-273.15|-280.23", ""},
    Rule{"", "iio", "read", "", true, Effect::kRetried, {}, "", "the rest is read after it"},
    Rule{"", "iio", "read", "", false, Effect::kTold, {}, "-273.15|-280.23", ""},
    Rule{"", "uio0", "open", "", false, Effect::kTold, {"open \"/dev/uio0\" failed!"}, "", ""},
    Rule{"", "uio1", "open", "", false, Effect::kTold, {"open \"/dev/uio1\" failed!"}, "", ""},
    Rule{"", "uio", "read|write", "", false, Effect::kUnchecked, {}, "",
         "an interrupt that cannot be read or let through again costs notifications only"},
};

}  // namespace reliability
