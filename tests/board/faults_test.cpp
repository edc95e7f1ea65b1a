// Faults that do not make a call fail.
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <array>
#include <cstdio>

#include "BoardFixture.h"
#include "SpiClient.h"

namespace board_test {
namespace {

constexpr const char* kTemperature = "/sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw";
constexpr const char* kBus = "/dev/i2c-0";
constexpr std::uint16_t kSensor = 0x36;

using ShortTest = BoardTest;

void CutShort(const char* device, const char* operation) {
  tessaline_board_fault(device, operation, 0, 1, TESSALINE_BOARD_SHORT);
}

TEST_F(ShortTest, AReadBringsHalf) {
  tessaline_board_set_temperature_raw(2500);
  const Descriptor file(kTemperature, O_RDONLY);
  std::array<char, 4> text{};
  CutShort("iio", "read");
  EXPECT_EQ(::read(file.Get(), text.data(), text.size()), 2);
  EXPECT_EQ(std::string(text.data(), 2), "25");
  EXPECT_EQ(Transcript().substr(0, 19), "iio read cut short\n");
}

TEST_F(ShortTest, AWriteTakesHalf) {
  ASSERT_EQ(WriteFile("/sys/class/gpio/export", "907"), 3);
  CutShort("gpio", "write");
  EXPECT_EQ(WriteFile("/sys/class/gpio/gpio907/value", "11"), -EPERM) << "an input still";
  EXPECT_EQ(WriteFile("/sys/class/gpio/gpio907/direction", "out"), 3);
  CutShort("gpio", "write");
  EXPECT_EQ(WriteFile("/sys/class/gpio/gpio907/value", "1\n"), 1);
  EXPECT_EQ(tessaline_board_gpio_level(907), 1);
}

TEST_F(ShortTest, AnI2cTransactionMakesHalfOfItsMessages) {
  tessaline_board_chip_set("sensor", 0x300B, 0xC3);
  const Descriptor bus(kBus, O_RDWR);
  std::array<std::uint8_t, 2> address{0x30, 0x0B};
  std::uint8_t value = 0xEE;
  std::array messages{i2c_msg{kSensor, 0, 2, address.data()},
                      i2c_msg{kSensor, I2C_M_RD, 1, &value}};
  i2c_rdwr_ioctl_data request{messages.data(), 2};
  CutShort("i2c-0", "I2C_RDWR");
  EXPECT_EQ(::ioctl(bus.Get(), I2C_RDWR, &request), 1);
  EXPECT_EQ(value, 0xEE);
  EXPECT_EQ(Transcript(), "i2c-0 I2C_RDWR cut short\ni2c-0 I2C_RDWR w 0x36 30 0b\n");
  request.nmsgs = 1;
  CutShort("i2c-0", "I2C_RDWR");
  EXPECT_EQ(::ioctl(bus.Get(), I2C_RDWR, &request), 0) << "half of one is none";
  request.nmsgs = 2;
  EXPECT_EQ(::ioctl(bus.Get(), I2C_RDWR, &request), 2);
  EXPECT_EQ(value, 0xC3);
}

TEST_F(ShortTest, AnSpiTransferMovesHalfOfItsBytes) {
  Select("K3820");
  const SpiClient client("/dev/spidev1.0");
  ASSERT_TRUE(client.IsOpen());
  const Bytes tx(6, 0x00);
  Bytes rx(6, 0xEE);
  spi_ioc_transfer transfer = SpiClient::Transfer(tx.data(), rx.data(), tx.size());
  CutShort("spi1.0", "SPI_IOC_MESSAGE");
  EXPECT_EQ(::ioctl(client.fd(), SPI_IOC_MESSAGE(1), &transfer), 3);
  EXPECT_EQ(rx[3], 0xEE);
  EXPECT_EQ(transfer.len, 6U) << "the caller's request stays as it is";
}

TEST_F(ShortTest, OtherCallsAreMadeInFull) {
  CutShort("i2c-0", "*");
  const Descriptor bus(kBus, O_RDWR);
  EXPECT_TRUE(bus.IsOpen());
  CutShort("i2c-0", "I2C_RETRIES");
  EXPECT_EQ(::ioctl(bus.Get(), I2C_RETRIES, 3), 0);
}

using StreamTest = BoardTest;

TEST_F(StreamTest, ReadsOfAStreamFailToo) {
  tessaline_board_set_temperature_raw(2500);
  FILE* const stream = std::fopen(kTemperature, "r");
  ASSERT_NE(stream, nullptr);
  tessaline_board_fault("iio", "read", 0, 1, EIO);
  unsigned raw = 7;
  EXPECT_EQ(std::fscanf(stream, "%u", &raw), EOF);
  EXPECT_NE(std::ferror(stream), 0);
  EXPECT_EQ(raw, 7U);
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(StreamTest, WhatAStreamIsCutShortOfComesWithTheNextRead) {
  tessaline_board_set_temperature_raw(2500);
  FILE* const stream = std::fopen(kTemperature, "r");
  ASSERT_NE(stream, nullptr);
  CutShort("iio", "read");
  unsigned raw = 0;
  EXPECT_EQ(std::fscanf(stream, "%u", &raw), 1);
  EXPECT_EQ(raw, 2500U);
  EXPECT_EQ(std::fclose(stream), 0);
}

using ListTest = BoardTest;

TEST_F(ListTest, CallsAreNotedAndMade) {
  tessaline_board_fault("*", "*", 0, 0, TESSALINE_BOARD_CALLED);
  EXPECT_EQ(WriteFile("/sys/class/gpio/export", "907"), 3);
  EXPECT_EQ(Transcript(), "gpio open called\ngpio write called\ngpio write export 907\n");
}

TEST_F(ListTest, ACallThatIsNotedCanFailAsWell) {
  tessaline_board_fault("*", "*", 0, 0, TESSALINE_BOARD_CALLED);
  tessaline_board_fault("gpio", "write", 0, 1, EIO);
  EXPECT_EQ(WriteFile("/sys/class/gpio/export", "907"), -EIO);
  EXPECT_EQ(Transcript(), "gpio open called\ngpio write called\ngpio write failed: EIO\n");
}

}  // namespace
}  // namespace board_test
