// The library's I2C and SPI traffic through the kernel's character devices.
#include <errno.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Devices/bus/I2cDev.h"
#include "Devices/bus/SpiDev.h"
#include "Devices/sensor/e2v_flash4k/E2vSpiInterface.h"
#include "Devices/sensor/gmax2509/GMAX2509SpiInterface.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSIInterface.h"
#include "support/Files.h"
#include "support/Measured.h"
#include "tessaline/log.h"

namespace {

using namespace kernel_test;
using VeltranoSDK::I2cDev;

const std::string kI2c = "/sys/kernel/debug/board_i2c/";
const std::string kSpi = "/sys/kernel/debug/board_spi/";

class I2c : public ::testing::Test {
 protected:
  static constexpr std::uint8_t kSensor = 0x36;
  I2c() { log_set_quiet(true); }
  static unsigned Transfers() { return std::stoul(ReadLine(kI2c + "transfers")); }
  I2cDev sensor_{"/dev/i2c-0", kSensor};
};

TEST_F(I2c, AReadIsOneTransferWithARepeatedStart) {
  ASSERT_TRUE(sensor_.I2cRdWr({0x30, 0x1D, 0xA5, 0x5A}));
  EXPECT_EQ(ReadFile(kI2c + "sensor").substr(0x301D, 2), "\xA5\x5A");
  const unsigned before = Transfers();
  std::vector<std::uint8_t> read(2);
  ASSERT_TRUE(sensor_.I2cRdWr({0x30, 0x1D}, read));
  EXPECT_EQ(read, (std::vector<std::uint8_t>{0xA5, 0x5A}));
  EXPECT_EQ(Transfers(), before + 1);
}

TEST_F(I2c, NobodyAtTheAddressFailsAndLeavesTheBytesAlone) {
  const I2cDev nobody("/dev/i2c-0", 0x22);
  std::vector<std::uint8_t> read{1, 2, 3};
  EXPECT_FALSE(nobody.I2cRdWr({0}, read));
  EXPECT_EQ(read, (std::vector<std::uint8_t>{1, 2, 3}));
  EXPECT_FALSE(nobody.I2cRdWr({0}));
  EXPECT_EQ(errno, ENXIO);
}

TEST_F(I2c, TheOtherBusHasOtherChips) {
  std::vector<std::uint8_t> read(1);
  EXPECT_FALSE(I2cDev("/dev/i2c-1", kSensor).I2cRdWr({0, 0}, read));
  EXPECT_TRUE(I2cDev("/dev/i2c-1", 0x2F).I2cRdWr({0x1C, 0x02}));
  EXPECT_FALSE(I2cDev("/dev/i2c-2", 0x2F).I2cRdWr({0x1C, 0x02}));
}

TEST_F(I2c, AFailingBusFailsAndComesBack) {
  WriteFile(kI2c + "fail_error", std::to_string(ETIMEDOUT));
  WriteFile(kI2c + "fail_count", "1");
  std::vector<std::uint8_t> read(1);
  EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x00}, read));
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x00}, read));
}

// A transfer that loses arbitration is repeated as often as the library has set.
TEST_F(I2c, TheKernelRetriesALostArbitration) {
  WriteFile(kI2c + "fail_error", std::to_string(EAGAIN));
  WriteFile(kI2c + "fail_count", "10");
  const unsigned before = Transfers();
  std::vector<std::uint8_t> read(1);
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x00}, read));
  EXPECT_EQ(Transfers(), before + 11);
  WriteFile(kI2c + "fail_count", "11");
  EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x00}, read));
  EXPECT_EQ(errno, EAGAIN);
}

class Spi : public ::testing::Test {
 protected:
  Spi() { log_set_quiet(true); }
  static std::uint8_t Register(const char* chip, unsigned address) {
    return static_cast<std::uint8_t>(ReadFile(kSpi + chip).at(address));
  }
  static void PutOnBus1(const char* chip) {
    ASSERT_TRUE(WriteFile("/sys/module/board_spi/parameters/chip", chip));
  }
};

TEST_F(Spi, E2vFraming) {
  VeltranoSDK::E2vSpiInterface bus;
  EXPECT_EQ(bus.Read(0x0001), std::pair(true, static_cast<unsigned short>(0x2030)));
  EXPECT_TRUE(bus.Wpage(3));
  EXPECT_TRUE(bus.Write(0x0012, 0xBEEF));
  EXPECT_EQ(bus.Read(0x0012), std::pair(true, static_cast<unsigned short>(0xBEEF)));
  EXPECT_TRUE(bus.Wpage(0));
  EXPECT_TRUE(bus.UpdateRegisters());
  EXPECT_TRUE(bus.UpdateROI());
  WriteFile(kSpi + "fail_count", "1");
  EXPECT_FALSE(bus.Read(0x0001).first);
}

TEST_F(Spi, GmaxFraming) {
  PutOnBus1("0");
  VeltranoSDK::GMAX2509SpiInterface bus;
  for (unsigned address = 1; address < 256; address += 7) {
    const auto value = static_cast<unsigned char>(address * 31);
    EXPECT_TRUE(bus.Write(static_cast<unsigned char>(address), value));
    EXPECT_EQ(Register("chip1", address), value);
    EXPECT_EQ(bus.Read(static_cast<unsigned char>(address)), value);
  }
}

TEST_F(Spi, GsprintFraming) {
  PutOnBus1("1");
  VeltranoSDK::GSPRINT6502BSIInterface bus;
  EXPECT_TRUE(bus.Write(0x1234, 0x56));
  EXPECT_EQ(bus.Read(0x1234), 0x56);
  EXPECT_TRUE(bus.BatchWrite(0x2000, {1, 2, 3, 4, 5}));
  EXPECT_EQ(ReadFile(kSpi + "chip1").substr(0x2000, 5), "\1\2\3\4\5");
  EXPECT_TRUE(bus.BatchWrite({{0x3000, 0xAA}, {0x3005, 0xBB}}));
  EXPECT_EQ(Register("chip1", 0x3000), 0xAA);
  EXPECT_EQ(Register("chip1", 0x3005), 0xBB);
}

TEST_F(Spi, WhatTheControllerCannotDoIsRefusedStepByStep) {
  using VeltranoSDK::DevFOps::SpiDev;
  SpiDev device;
  EXPECT_FALSE(device.Open("/dev/spidev7.0"));
  ASSERT_TRUE(device.Open("/dev/spidev0.0"));
  EXPECT_FALSE(device.Open("/dev/spidev0.0"));
  EXPECT_TRUE(device.SetOpt(SpiDev::SpiMode{}, false, 8, 1000000));
  EXPECT_FALSE(device.SetOpt(SpiDev::SpiMode{}, true, 8, 1000000));
  EXPECT_FALSE(device.SetOpt(SpiDev::SpiMode{}, false, 16, 1000000));
  EXPECT_FALSE(device.SetOpt(SpiDev::SpiMode{}, false, 8, 0));
  EXPECT_TRUE(device.Close());
}

}  // namespace
