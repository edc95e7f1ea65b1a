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

TEST_F(I2cTest, OffersPlainTransfersAndWhatIsMadeOfThem) {
  unsigned long functions = 0;
  EXPECT_EQ(::ioctl(bus_.Get(), I2C_FUNCS, &functions), 0);
  EXPECT_EQ(functions, static_cast<unsigned long>(I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL));
  EXPECT_EQ(Outcome(::ioctl(bus_.Get(), WDIOC_KEEPALIVE, 0)), -ENOTTY);
}

// SMBus commands to the EEPROM.
class SmbusTest : public I2cTest {
 protected:
  static constexpr std::uint8_t kEeprom = 0x50;

  void SetUp() override {
    I2cTest::SetUp();
    ASSERT_EQ(Setting(I2C_SLAVE, kEeprom), 0);
    tessaline_board_transcript_clear();
  }

  long Command(std::uint8_t direction, std::uint32_t size, std::uint8_t command,
               i2c_smbus_data* data) const {
    i2c_smbus_ioctl_data request{direction, command, size, data};
    return Outcome(::ioctl(bus_.Get(), I2C_SMBUS, &request));
  }
};

TEST_F(SmbusTest, CommandsAreMadeOfPlainMessages) {
  struct Row {
    std::uint8_t direction;
    std::uint32_t size;
    const char* messages;
  };
  constexpr std::array kRows{
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_QUICK, "w 0x50"},
      Row{I2C_SMBUS_READ, I2C_SMBUS_QUICK, "r 0x50"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_BYTE, "w 0x50 07"},
      Row{I2C_SMBUS_READ, I2C_SMBUS_BYTE, "r 0x50 ff"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, "w 0x50 07 02"},
      Row{I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, "w 0x50 07; r 0x50 ff"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_WORD_DATA, "w 0x50 07 02 31"},
      Row{I2C_SMBUS_READ, I2C_SMBUS_WORD_DATA, "w 0x50 07; r 0x50 ff ff"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_PROC_CALL, "w 0x50 07 02 31; r 0x50 ff ff"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, "w 0x50 07 02 31 32"},
      Row{I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_DATA, "w 0x50 07 31 32"},
      Row{I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, "w 0x50 07; r 0x50 ff ff"},
  };
  for (const Row& row : kRows) {
    tessaline_board_transcript_clear();
    i2c_smbus_data data{};
    data.block[0] = 2;
    data.block[1] = 0x31;
    data.block[2] = 0x32;
    EXPECT_EQ(Command(row.direction, row.size, 7, &data), 0) << row.messages;
    EXPECT_EQ(Transcript(), std::string("i2c-0 I2C_SMBUS ") + row.messages + '\n');
    Pass(10);  // the chip writes
    tessaline_board_chip_set("eeprom", 7, 0xFF);
    tessaline_board_chip_set("eeprom", 8, 0xFF);
    tessaline_board_chip_set("eeprom", 9, 0xFF);
  }
}

TEST_F(SmbusTest, ReadsReturnTheChipsBytes) {
  tessaline_board_chip_set("eeprom", 0x20, 0x11);
  tessaline_board_chip_set("eeprom", 0x21, 0x22);
  i2c_smbus_data data{};
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 0x20, &data), 0);
  EXPECT_EQ(data.byte, 0x11);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE, 0, &data), 0);  // goes on behind it
  EXPECT_EQ(data.byte, 0x22);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_WORD_DATA, 0x20, &data), 0);
  EXPECT_EQ(data.word, 0x2211);
  data.block[0] = 3;
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, 0x20, &data), 0);
  EXPECT_THAT(std::vector(data.block, data.block + 4), testing::ElementsAre(3, 0x11, 0x22, 0xFF));
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_BROKEN, 0x20, &data), 0);
  EXPECT_EQ(data.block[0], I2C_SMBUS_BLOCK_MAX);
}

TEST_F(SmbusTest, MalformedCommandsAreRefused) {
  i2c_smbus_data data{};
  EXPECT_EQ(Command(2, I2C_SMBUS_BYTE_DATA, 0, &data), -EINVAL);
  EXPECT_EQ(Command(I2C_SMBUS_READ, 9, 0, &data), -EINVAL);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 0, nullptr), -EINVAL);
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_BYTE, 0, nullptr), 0);
  data.block[0] = I2C_SMBUS_BLOCK_MAX + 1;
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, 0, &data), -EINVAL);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, 0, &data), -EINVAL);
  // The controllers cannot take a length from the chip.
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BLOCK_DATA, 0, &data), -EOPNOTSUPP);
  EXPECT_EQ(Outcome(::ioctl(bus_.Get(), I2C_SMBUS, nullptr)), -EFAULT);
}

TEST_F(SmbusTest, AChipThatIsMissingOrBusyDoesNotAnswer) {
  i2c_smbus_data data{};
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, 0, &data), 0);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 0, &data), -ENXIO);
  Pass(10);
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 0, &data), 0);
  EXPECT_EQ(Setting(I2C_SLAVE_FORCE, 0x22), 0);
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_QUICK, 0, nullptr), -ENXIO);
}

// The chips make no check bytes, so only one that happens to be right passes.
TEST_F(SmbusTest, CheckBytesEndTheMessages) {
  EXPECT_EQ(Setting(I2C_PEC, 1), 0);
  tessaline_board_transcript_clear();
  i2c_smbus_data data{};
  data.byte = 0x77;
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, 3, &data), 0);
  EXPECT_EQ(Transcript(), "i2c-0 I2C_SMBUS w 0x50 03 77 35\n");
  Pass(10);
  data.byte = 0x55;
  EXPECT_EQ(Command(I2C_SMBUS_READ, I2C_SMBUS_BYTE_DATA, 0x30, &data), -EBADMSG);
  EXPECT_EQ(data.byte, 0x55);
}

TEST_F(SmbusTest, NobodyHasATenBitAddress) {
  EXPECT_EQ(Setting(I2C_SLAVE, 0x150), -EINVAL);
  EXPECT_EQ(Setting(I2C_TENBIT, 1), 0);
  EXPECT_EQ(Setting(I2C_SLAVE, 0x150), 0);
  EXPECT_EQ(Setting(I2C_SLAVE, 0x400), -EINVAL);
  EXPECT_EQ(Command(I2C_SMBUS_WRITE, I2C_SMBUS_QUICK, 0, nullptr), -ENXIO);
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
