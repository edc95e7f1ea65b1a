// The SPI buses, as any spidev program sees them. sensors_test checks what the chips do with the
// bytes.

#include <gmock/gmock.h>
#include <linux/i2c-dev.h>

#include <array>
#include <string>

#include "SpiClient.h"

namespace {

using board_test::BoardTest;
using board_test::Bytes;
using board_test::OpenOutcome;
using board_test::Outcome;
using board_test::SpiClient;
using board_test::Transcript;
using testing::Each;
using testing::ElementsAre;

constexpr const char* kPath = "/dev/spidev1.0";
constexpr std::size_t kMost = 4096;

class SpiTest : public BoardTest {
 protected:
  void SetUp() override { Select("K3820"); }
};

TEST_F(SpiTest, NodesExistOnlyWhereTheSensorIsOnSpi) {
  struct Row {
    const char* model;
    bool controller0, controller1;
  };
  constexpr std::array kRows{
      Row{"K3610", false, false}, Row{"K3710", false, false}, Row{"K3810", false, true},
      Row{"K3820", false, true},  Row{"K3910", false, true},  Row{"K4010", true, false},
  };
  for (const Row& row : kRows) {
    Select(row.model);
    EXPECT_EQ(OpenOutcome("/dev/spidev0.0", O_RDWR) == 0, row.controller0) << row.model;
    EXPECT_EQ(OpenOutcome(kPath, O_RDWR) == 0, row.controller1) << row.model;
    EXPECT_EQ(OpenOutcome("/dev/spidev1.1", O_RDWR), -ENOENT) << row.model;
  }
}

TEST_F(SpiTest, SettingsAreSetAndReadBack) {
  const SpiClient client(kPath);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MODE, std::uint8_t{SPI_MODE_3}), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_LSB_FIRST, std::uint8_t{0}), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_BITS_PER_WORD, std::uint8_t{8}), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MAX_SPEED_HZ, std::uint32_t{10'000'000}), 0);
  std::uint8_t mode = 0xFF;
  std::uint32_t wide_mode = ~0u;
  std::uint8_t lsb_first = 0xFF;
  std::uint8_t bits = 0;
  std::uint32_t speed = 0;
  EXPECT_EQ(client.Setting(SPI_IOC_RD_MODE, mode), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_RD_MODE32, wide_mode), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_RD_LSB_FIRST, lsb_first), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_RD_BITS_PER_WORD, bits), 0);
  EXPECT_EQ(client.Setting(SPI_IOC_RD_MAX_SPEED_HZ, speed), 0);
  EXPECT_EQ(mode, SPI_MODE_3);
  EXPECT_EQ(wide_mode, std::uint32_t{SPI_MODE_3});
  EXPECT_EQ(lsb_first, 0);
  EXPECT_EQ(bits, 8);
  EXPECT_EQ(speed, 10'000'000u);
  EXPECT_EQ(Transcript(),
            "spi1.0 SPI_IOC_WR_MODE 3\n"
            "spi1.0 SPI_IOC_WR_LSB_FIRST 0\n"
            "spi1.0 SPI_IOC_WR_BITS_PER_WORD 8\n"
            "spi1.0 SPI_IOC_WR_MAX_SPEED_HZ 10000000\n"
            "spi1.0 SPI_IOC_RD_MODE 3\n"
            "spi1.0 SPI_IOC_RD_MODE32 3\n"
            "spi1.0 SPI_IOC_RD_LSB_FIRST 0\n"
            "spi1.0 SPI_IOC_RD_BITS_PER_WORD 8\n"
            "spi1.0 SPI_IOC_RD_MAX_SPEED_HZ 10000000\n");
}

TEST_F(SpiTest, SettingsBelongToTheDeviceNotToTheOpenFile) {
  EXPECT_EQ(SpiClient(kPath).Setting(SPI_IOC_WR_MODE32, std::uint32_t{SPI_MODE_1}), 0);
  std::uint8_t mode = 0;
  EXPECT_EQ(SpiClient(kPath).Setting(SPI_IOC_RD_MODE, mode), 0);
  EXPECT_EQ(mode, SPI_MODE_1);
}

TEST_F(SpiTest, RefusesWhatTheControllerCannotDo) {
  const SpiClient client(kPath);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MODE, std::uint8_t{SPI_CS_HIGH}), -EINVAL);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MODE32, std::uint32_t{SPI_TX_QUAD}), -EINVAL);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_LSB_FIRST, std::uint8_t{1}), -EINVAL);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_BITS_PER_WORD, std::uint8_t{16}), -EINVAL);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MAX_SPEED_HZ, std::uint32_t{0}), -EINVAL);
  std::uint8_t mode = 0xFF;
  EXPECT_EQ(client.Setting(SPI_IOC_RD_MODE, mode), 0);
  EXPECT_EQ(mode, SPI_MODE_0);
  EXPECT_THAT(Transcript(), testing::HasSubstr("spi1.0 SPI_IOC_WR_LSB_FIRST 1 failed: EINVAL\n"));
}

TEST_F(SpiTest, TransfersAndWritesStandInTheTranscript) {
  const SpiClient client(kPath);
  client.Exchange({0xDA, 0xA0, 0x80});
  EXPECT_EQ(client.Write({0x90}), 1);
  std::uint8_t byte = 0xEE;
  EXPECT_EQ(::read(client.fd(), &byte, 1), 1);
  EXPECT_EQ(byte, 0);
  EXPECT_EQ(Transcript(),
            "spi1.0 tx da a0 80 rx 00 00 00\n"
            "spi1.0 write 90\n"
            "spi1.0 read 00\n");
}

TEST_F(SpiTest, TransfersOfOneMessageAreOneFrame) {
  tessaline_board_chip_set("sensor", 0xC0, 0xA5);
  const SpiClient client(kPath);
  const Bytes address{0x60, 0x00};
  std::uint8_t rest = 0xEE;
  std::array transfers{SpiClient::Transfer(address.data(), nullptr, address.size()),
                       SpiClient::Transfer(nullptr, &rest, 1)};
  EXPECT_EQ(::ioctl(client.fd(), SPI_IOC_MESSAGE(2), transfers.data()), 3);
  EXPECT_EQ(rest, (0xA5 & 3) << 6);
  EXPECT_EQ(Transcript(), "spi1.0 tx 60 00; rx 40\n");
}

TEST_F(SpiTest, ASelectChangePartsTheFrame) {
  tessaline_board_chip_set("sensor", 0xC0, 0xA5);
  const SpiClient client(kPath);
  const Bytes address{0x60, 0x00};
  std::uint8_t rest = 0xEE;
  std::array transfers{SpiClient::Transfer(address.data(), nullptr, address.size()),
                       SpiClient::Transfer(nullptr, &rest, 1)};
  transfers[0].cs_change = 1;
  EXPECT_EQ(::ioctl(client.fd(), SPI_IOC_MESSAGE(2), transfers.data()), 3);
  EXPECT_EQ(rest, 0);
}

TEST_F(SpiTest, RefusesMoreThanItsBufferHolds) {
  const SpiClient client(kPath);
  Bytes bytes(kMost + 1);
  spi_ioc_transfer transfer = SpiClient::Transfer(bytes.data(), bytes.data(), bytes.size());
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), -EMSGSIZE);
  EXPECT_EQ(client.Write(bytes), -EMSGSIZE);
  EXPECT_EQ(Outcome(::read(client.fd(), bytes.data(), bytes.size())), -EMSGSIZE);
  EXPECT_EQ(Transcript(),
            "spi1.0 SPI_IOC_MESSAGE failed: EMSGSIZE\n"
            "spi1.0 write failed: EMSGSIZE\n"
            "spi1.0 read failed: EMSGSIZE\n");
  transfer.len = kMost;
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), static_cast<long>(kMost));
  bytes.resize(kMost);
  EXPECT_EQ(client.Write(bytes), static_cast<long>(kMost));
}

TEST_F(SpiTest, TheBufferIsSharedByAMessagesTransfers) {
  const SpiClient client(kPath);
  Bytes bytes(kMost);
  std::array transfers{SpiClient::Transfer(bytes.data(), nullptr, kMost),
                       SpiClient::Transfer(bytes.data(), nullptr, 1)};
  EXPECT_EQ(Outcome(::ioctl(client.fd(), SPI_IOC_MESSAGE(2), transfers.data())), -EMSGSIZE);
}

TEST_F(SpiTest, ATransferWithoutBuffersClocksNothing) {
  const SpiClient client(kPath);
  spi_ioc_transfer transfer = SpiClient::Transfer(nullptr, nullptr, 1'000'000'000);
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), 1'000'000'000);
}

TEST_F(SpiTest, RefusesMalformedMessagesAndForeignRequests) {
  const SpiClient client(kPath);
  std::array<std::uint8_t, 64> bytes{};
  EXPECT_EQ(Outcome(::ioctl(client.fd(), _IOW(SPI_IOC_MAGIC, 0, char[33]), bytes.data())), -EINVAL);
  EXPECT_EQ(Outcome(::ioctl(client.fd(), _IOC(_IOC_WRITE, SPI_IOC_MAGIC, 0, 0), bytes.data())), 0);
  spi_ioc_transfer transfer = SpiClient::Transfer(bytes.data(), nullptr, 2);
  transfer.bits_per_word = 12;
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), -EINVAL);
  EXPECT_EQ(Outcome(::ioctl(client.fd(), I2C_RDWR, bytes.data())), -ENOTTY);
  EXPECT_EQ(Outcome(::ioctl(client.fd(), _IOW(SPI_IOC_MAGIC, 9, __u8), bytes.data())), -ENOTTY);
  EXPECT_EQ(Outcome(::ioctl(client.fd(), SPI_IOC_WR_MODE, nullptr)), -EFAULT);
  EXPECT_EQ(Outcome(::ioctl(client.fd(), SPI_IOC_MESSAGE(1), nullptr)), -EFAULT);
}

TEST_F(SpiTest, FaultsArePlantedByName) {
  const SpiClient client(kPath);
  tessaline_board_fault("spi1.0", "SPI_IOC_MESSAGE", 1, 1, EIO);
  tessaline_board_fault("spi1.0", "SPI_IOC_WR_MAX_SPEED_HZ", 0, 1, EINVAL);
  tessaline_board_fault("spi1.0", "write", 0, 1, ETIMEDOUT);
  Bytes bytes(3);
  spi_ioc_transfer transfer = SpiClient::Transfer(bytes.data(), bytes.data(), bytes.size());
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), 3);
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), -EIO);
  EXPECT_EQ(client.Setting(SPI_IOC_MESSAGE(1), transfer), 3);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MAX_SPEED_HZ, std::uint32_t{1'000'000}), -EINVAL);
  EXPECT_EQ(client.Write(bytes), -ETIMEDOUT);
  EXPECT_THAT(Transcript(), testing::HasSubstr("spi1.0 SPI_IOC_MESSAGE failed: EIO\n"));
}

TEST_F(SpiTest, AnAbsentChipAnswersNothing) {
  tessaline_board_chip_set("sensor", 0xC0, 0xA5);
  const SpiClient client(kPath);
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_THAT(client.Exchange({0x60, 0x00, 0x00}), Each(0));
  ASSERT_EQ(tessaline_board_chip_present("sensor", 1), 0);
  EXPECT_THAT(client.Exchange({0x60, 0x00, 0x00}), ElementsAre(0, 0xA5 >> 2, 0x40));
}

TEST_F(SpiTest, TheChipsUnderstandModeZeroOnly) {
  tessaline_board_chip_set("sensor", 0xC0, 0xA5);
  const SpiClient client(kPath);
  EXPECT_EQ(client.Setting(SPI_IOC_WR_MODE, std::uint8_t{SPI_MODE_1}), 0);
  EXPECT_THAT(client.Exchange({0x60, 0x00, 0x00}), Each(0));
}

TEST_F(SpiTest, OpenFilesAreCountedAndFailOnceUnplugged) {
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 0);
  const SpiClient first(kPath);
  {
    const SpiClient second(kPath);
    EXPECT_EQ(tessaline_board_open_files("spi1.0"), 2);
  }
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 1);
  tessaline_board_unplug();
  EXPECT_EQ(first.Write({0}), -ENODEV);
}

}  // namespace
