#pragma once

#include <array>
#include <string_view>

#include "Rule.h"
#include "RuleTexts.h"

namespace reliability {

constexpr Rule FirstQueueing(std::string_view device, unsigned buffers) {
  return On(device, "VIDIOC_QBUF")
      .During(kStartUp)
      .AmongTheFirst(buffers)
      .Tells("v4l2 VIDIOC_QBUF failed: {}", kNoVideo)
      .Returns("0");
}

// Calls that a signal interrupts; checked before all others.
inline constexpr std::array kInterruptedRules{
    On("fpga|gpio|i2c-|spi|video|udmabuf|uio|iio")
        .IsMadeAgain()
        .Because("a signal is no failure of the call, which is made again"),
};

inline constexpr std::array kRules{
    // Registers
    On("fpga", "open")
        .During("SIGINT")
        .Stops("open(/dev/mem) failed.")
        .Returns("0")
        .Because("an interrupt ends the program all the same"),
    On("fpga", "open")
        .Hangs("open(/dev/mem) failed.")
        .Because(
            "a board whose registers were out of reach is in no known state: the lock stays taken"),
    On("fpga", "mmap")
        .IsNotLookedAt()
        .Returns(kSame)
        .Because("most setters do not look at their writes; what they read is replaced, or counts "
                 "as ones"),

    // Lines
    On("gpio", "open")
        .During(kStartUp)
        .Tells(kStartUpLights,
               "error: RangeLed SetColor(RangeLed::Color::BLACK) \n|error: LaserLed Close() \n")
        .Returns("0")
        .Because("a light that does not go out keeps no sensor from starting"),
    On("gpio", "open").During("LedControl").Tells(kRangeLed).Returns("-1"),
    On("gpio", "open").During("OpenLaser|CloseLaser").Tells(kLaser).Returns("-1"),
    On("gpio", "write")
        .During("OpenLaser")
        .For("write export")
        .Tells(kLaser)
        .Returns("-1")
        .Because("nobody has exported the laser's lines before: their files do not appear"),
    On("gpio", "write")
        .IsNotLookedAt()
        .Returns(kSame)
        .Because("exporting a line twice fails in the kernel, so no write to a line is looked at"),

    // Settings store
    On("i2c-", "open")
        .During(kSaves)
        .Tells("open eeprom: {}\n", "ConfigSave error!\n")
        .Returns("-1"),
    On("i2c-", "I2C_RDWR")
        .During(kSaves)
        .Tells("ioctl: {}\npage_write error\n", "ConfigSave error!\n")
        .Returns("-1"),
    On("i2c-", "open")
        .During("ConfigRead(100)")
        .Tells("open eeprom: {}\n", "ConfigRead error!\n")
        .Returns("-1"),
    On("i2c-", "I2C_RDWR")
        .During("ConfigRead(100)")
        .Tells("ioctl: {}\npage_read error\n", "ConfigRead error!\n")
        .Returns("-1"),
    // Reading whole pages of both halves reports with the texts of saving.
    On("i2c-", "open")
        .During("ConfigRead(272)")
        .Tells("open eeprom: {}\n", "ConfigSave error!\n")
        .Returns("-1"),
    On("i2c-", "I2C_RDWR")
        .During("ConfigRead(272)")
        .Tells("ioctl: {}\npage_read error\n", "ConfigSave error!\n")
        .Returns("-1"),
    On("i2c-", "open")
        .During("eeprom_page_write|eeprom_page_read")
        .Tells("open eeprom: {}\n")
        .Returns("-1"),
    On("i2c-", "I2C_RDWR")
        .During("eeprom_page_write")
        .Tells("ioctl: {}\npage_write error\n")
        .Returns("-1"),
    On("i2c-", "I2C_RDWR")
        .During("eeprom_page_read")
        .Tells("ioctl: {}\npage_read error\n")
        .Returns("-1"),
    On("i2c-", "I2C_TIMEOUT|I2C_RETRIES")
        .During(kEepromCalls)
        .Retries()
        .Because("the adapter's own time-out and retries do as well"),

    // Laser power
    On("i2c-", "open")
        .During(kLaserPowerCalls)
        .Tells("I2cDev::Open() Unable to open i2c control file: {}")
        .Returns("-1"),
    On("i2c-", "I2C_RETRIES|I2C_RDWR").During(kLaserPowerCalls).Returns("-1"),

    // Sony sensors
    On("i2c-", "open")
        .Of("K36|K37")
        .Retries("I2cDev::Open() Unable to open i2c control file: {}")
        .Because("an access to the sensor is tried ten times"),
    On("i2c-", "I2C_RETRIES|I2C_RDWR")
        .Of("K36|K37")
        .Retries()
        .Because("an access to the sensor is tried ten times"),

    // Streams
    On("video", "open").Tells("v4l2 open file failed: {}", kNoVideo).Returns("0"),
    On("video", "VIDIOC_QUERYCAP").Tells("v4l2 VIDIOC_QUERYCAP failed", kNoVideo).Returns("0"),
    // Only the first format of each device counts; the image device gets another with each region,
    // which has no consequence.
    On("video", "VIDIOC_TRY_FMT")
        .During(kStartUp)
        .AmongTheFirst(1)
        .Tells("v4l2 VIDIOC_TRY_FMT failed: {}, width", kNoVideo)
        .Returns("0"),
    On("video", "VIDIOC_TRY_FMT").Tells("v4l2 VIDIOC_TRY_FMT failed: {}, width").Returns(kSame),
    On("video", "VIDIOC_S_FMT")
        .During(kStartUp)
        .AmongTheFirst(1)
        .Tells("v4l2 VIDIOC_S_FMT failed: {}, width", kNoVideo)
        .Returns("0"),
    On("video", "VIDIOC_S_FMT").Tells("v4l2 VIDIOC_S_FMT failed: {}, width").Returns(kSame),
    On("video", "VIDIOC_REQBUFS").Tells("v4l2 VIDIOC_REQBUFS failed: {}", kNoVideo).Returns("0"),
    On("video", "VIDIOC_QUERYBUF").Tells("v4l2 VIDIOC_QUERYBUF failed: {}", kNoVideo).Returns("0"),
    On("video", "mmap").Tells("v4l2 mmap failed!", kNoVideo).Returns("0"),
    // The stop reports with the text of the start.
    On("video", "VIDIOC_STREAMOFF").Tells("v4l2 VIDIOC_STREAMON failed: {}").Returns(kSame),
    On("video", "VIDIOC_STREAMON").Tells("v4l2 VIDIOC_STREAMON failed: {}", kNoVideo).Returns("0"),
    // Only the first queueing of all buffers counts. A K37 takes an image for its self-test before
    // start-up returns.
    FirstQueueing("video0", 10),
    FirstQueueing("video1", 18),
    On("video", "VIDIOC_QBUF").Tells("v4l2 VIDIOC_QBUF failed: {}").Returns(kSame),
    On("video", "VIDIOC_DQBUF").Tells("v4l2 VIDIOC_DQBUF failed: {}").Returns(kSame),
    On("video|uio", "poll")
        .Retries()
        .Because("a thread that cannot wait makes its call at once, and waits in that"),
    // The area itself, without which there are no buffers, and its five controls.
    On("udmabuf0", "open").AmongTheFirst(1).Tells("UdmaBuf mmap!", kNoVideo).Returns("0"),
    On("udmabuf0", "open")
        .Tells("sync_offset open failed!|sync_size open failed!|sync_direction open failed!|"
               "sync_for_cpu open failed!|sync_for_device open failed!")
        .Returns("0"),
    On("udmabuf0", "mmap").Tells("UdmaBuf mmap failed!", kNoVideo).Returns("0"),
    On("udmabuf0", "write")
        .Retries()
        .Because("the driver takes a cache request or not; there is nobody to tell"),

    // Temperature, interrupts
    On("iio", "read").CutShort().Retries().Because("the rest is read after it"),
    On("iio", "open")
        .Of("K40")
        .Tells("fopen /sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw failed!\n")
        .Returns("-280.23"),
    On("iio", "open")
        .Tells("fopen /sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw failed!\n")
        .Returns("-273.15"),
    On("iio", "read").Of("K40").Returns("-280.23"),
    On("iio", "read").Returns("-273.15"),
    On("uio0", "open").Tells("open \"/dev/uio0\" failed!\n").Returns(kSame),
    On("uio1", "open").Tells("open \"/dev/uio1\" failed!\n").Returns(kSame),
    On("uio", "read|write")
        .IsNotLookedAt()
        .Returns(kSame)
        .Because("an interrupt that cannot be read or let through again costs notifications only"),
};

}  // namespace reliability
