// The virtual board's I2C buses through the system calls that reach them.

#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/watchdog.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "BoardFixture.h"

namespace {

using board_test::BoardTest;
using board_test::Descriptor;
using board_test::Outcome;
using board_test::Transcript;

class I2cTest : public BoardTest {
 protected:
  Descriptor bus_;

  void SetUp() override {
    BoardTest::SetUp();
    bus_ = Descriptor("/dev/i2c-0", O_RDWR);
    ASSERT_TRUE(bus_.IsOpen());
  }

  long Transfer(i2c_msg* messages, unsigned count) const {
    i2c_rdwr_ioctl_data request{messages, count};
    return Outcome(::ioctl(bus_.Get(), I2C_RDWR, &request));
  }
  long Setting(unsigned long request, unsigned long value) const {
    return Outcome(::ioctl(bus_.Get(), request, value));
  }
};

TEST_F(I2cTest, TransferReturnsTheNumberOfMessages) {
  std::array<std::uint8_t, 3> write{0x33, 0x10, 0x5A};
  std::array<std::uint8_t, 2> address{0x33, 0x10};
  std::array<std::uint8_t, 1> read{};
  i2c_msg messages[]{
      {0x36, 0, 3, write.data()}, {0x36, 0, 2, address.data()}, {0x36, I2C_M_RD, 1, read.data()}};
  EXPECT_EQ(Transfer(messages, 3), 3);
  EXPECT_EQ(read[0], 0x5A);
  EXPECT_EQ(Transcript(), "i2c-0 I2C_RDWR w 0x36 33 10 5a; w 0x36 33 10; r 0x36 5a\n");
}

TEST_F(I2cTest, MissingChipFailsAndLeavesReadBuffersAlone) {
  std::array<std::uint8_t, 1> write{0x01};
  std::array<std::uint8_t, 2> read{0xAA, 0xBB};
  i2c_msg messages[]{{0x22, 0, 1, write.data()}, {0x22, I2C_M_RD, 2, read.data()}};
  EXPECT_EQ(Transfer(messages, 2), -ENXIO);
  EXPECT_EQ(read[0], 0xAA);
  EXPECT_EQ(Transcript(), "i2c-0 I2C_RDWR w 0x22 01; r 0x22 failed: ENXIO\n");
}

TEST_F(I2cTest, WhatCameBeforeTheMissingChipHasHappened) {
  std::array<std::uint8_t, 3> write{0x33, 0x10, 0x5A};
  i2c_msg messages[]{{0x36, 0, 3, write.data()}, {0x22, 0, 1, write.data()}};
  EXPECT_EQ(Transfer(messages, 2), -ENXIO);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3310), 0x5A);
}

TEST_F(I2cTest, AtMostFortyTwoMessages) {
  std::array<std::uint8_t, 2> address{0x30, 0x00};
  std::vector<i2c_msg> messages(43, i2c_msg{0x36, 0, 2, address.data()});
  EXPECT_EQ(Transfer(messages.data(), 42), 42);
  EXPECT_EQ(Transfer(messages.data(), 43), -EINVAL);
  EXPECT_EQ(Transfer(messages.data(), 0), -EINVAL);
  EXPECT_EQ(Transfer(nullptr, 1), -EINVAL);
}

TEST_F(I2cTest, MalformedMessagesAreRefused) {
  std::vector<std::uint8_t> bytes(8193);
  i2c_msg too_long{0x36, 0, 8193, bytes.data()};
  EXPECT_EQ(Transfer(&too_long, 1), -EINVAL);
  i2c_msg no_buffer{0x36, 0, 1, nullptr};
  EXPECT_EQ(Transfer(&no_buffer, 1), -EFAULT);
  i2c_msg length_from_chip{0x36, I2C_M_RD | I2C_M_RECV_LEN, 33, bytes.data()};
  EXPECT_EQ(Transfer(&length_from_chip, 1), -EOPNOTSUPP);
  i2c_msg ten_bits{0x36, I2C_M_TEN, 2, bytes.data()};
  EXPECT_EQ(Transfer(&ten_bits, 1), -ENXIO);
}

TEST_F(I2cTest, RetriesAndTimeoutAreAccepted) {
  EXPECT_EQ(Setting(I2C_RETRIES, 10), 0);
  EXPECT_EQ(Setting(I2C_TIMEOUT, 4), 0);
  EXPECT_EQ(Setting(I2C_RETRIES, 0x80000000UL), -EINVAL);
  EXPECT_EQ(Transcript(),
            "i2c-0 I2C_RETRIES 10\n"
            "i2c-0 I2C_TIMEOUT 4\n"
            "i2c-0 I2C_RETRIES 2147483648 failed: EINVAL\n");
}

TEST_F(I2cTest, PlainReadAndWriteGoToTheSelectedSlave) {
  const std::array<std::uint8_t, 3> write{0x33, 0x10, 0x77};
  EXPECT_EQ(Outcome(::write(bus_.Get(), write.data(), 3)), -ENXIO);  // none selected yet
  EXPECT_EQ(Setting(I2C_SLAVE, 0x36), 0);
  EXPECT_EQ(::write(bus_.Get(), write.data(), 3), 3);
  EXPECT_EQ(::write(bus_.Get(), write.data(), 2), 2);
  std::uint8_t read = 0;
  EXPECT_EQ(::read(bus_.Get(), &read, 1), 1);
  EXPECT_EQ(read, 0x77);
  EXPECT_EQ(Setting(I2C_SLAVE, 0x80), -EINVAL);
}

TEST_F(I2cTest, SelectedSlaveBelongsToTheDescriptor) {
  EXPECT_EQ(Setting(I2C_SLAVE, 0x36), 0);
  const Descriptor other("/dev/i2c-0", O_RDWR);
  const std::uint8_t byte = 0;
  EXPECT_EQ(Outcome(::write(other.Get(), &byte, 1)), -ENXIO);
}

TEST_F(I2cTest, OffersPlainTransfersAndNothingElse) {
  unsigned long functions = 0;
  EXPECT_EQ(::ioctl(bus_.Get(), I2C_FUNCS, &functions), 0);
  EXPECT_EQ(functions, static_cast<unsigned long>(I2C_FUNC_I2C));
  i2c_smbus_ioctl_data smbus{};
  EXPECT_EQ(Outcome(::ioctl(bus_.Get(), I2C_SMBUS, &smbus)), -ENOTTY);
  EXPECT_EQ(Outcome(::ioctl(bus_.Get(), WDIOC_KEEPALIVE, 0)), -ENOTTY);
}

TEST_F(I2cTest, PlantedFaultsFailTheTransfer) {
  tessaline_board_fault("i2c-0", "I2C_RDWR", 1, 1, EREMOTEIO);
  std::array<std::uint8_t, 2> address{0x30, 0x00};
  i2c_msg message{0x36, 0, 2, address.data()};
  EXPECT_EQ(Transfer(&message, 1), 1);
  EXPECT_EQ(Transfer(&message, 1), -EREMOTEIO);
  EXPECT_EQ(Transfer(&message, 1), 1);
}

TEST_F(I2cTest, ThreadsDoNotMixTransactions) {
  constexpr int kRounds = 500;
  std::atomic<int> wrong{0};
  const auto hammer = [&](std::uint8_t high, std::uint8_t low) {
    for (int i = 0; i < kRounds; ++i) {
      const auto value = static_cast<std::uint8_t>(i);
      std::array<std::uint8_t, 3> write{high, low, value};
      std::array<std::uint8_t, 1> read{};
      i2c_msg messages[]{
          {0x36, 0, 3, write.data()}, {0x36, 0, 2, write.data()}, {0x36, I2C_M_RD, 1, read.data()}};
      if (Transfer(messages, 3) != 3 || read[0] != value) ++wrong;
    }
  };
  std::thread first(hammer, 0x33, 0x10);
  std::thread second(hammer, 0x33, 0x12);
  first.join();
  second.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
