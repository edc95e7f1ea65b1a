// The SPI wrapper. What needs a device runs on a K3910, whose sensor is on SPI.
#include <array>
#include <cerrno>

#include "DeviceTest.h"
#include "Devices/SpiDev.h"

namespace VeltranoSDK {
namespace {

using DevFOps::SpiDev;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kPath[] = "/dev/spidev1.0";
constexpr std::uint32_t kSpeed = 10'000'000;

class Spi : public tessaline_test::BoardFixture {
 protected:
  Spi() : BoardFixture("K3910") {}

  void SetUp() override {
    BoardFixture::SetUp();
    const int fd = open(kPath, O_RDWR);
    if (fd < 0) GTEST_SKIP() << "the virtual K3910 has no " << kPath;
    close(fd);
  }

  static Lines BusEvents() {
    Lines events;
    for (const std::string& event : Events()) {
      if (event.starts_with("spi")) events.push_back(event);
    }
    return events;
  }

  SpiDev device_;
};

struct Step {
  const char* request;
  const char* printed;
};
constexpr Step kSteps[]{
    {"SPI_IOC_WR_MODE", "SpiDev::SetOpt wr_mode\n"},
    {"SPI_IOC_RD_MODE", "SpiDev::SetOpt rd_mode\n"},
    {"SPI_IOC_WR_LSB_FIRST", "SpiDev::SetOpt wr_lsb_fist\n"},
    {"SPI_IOC_RD_LSB_FIRST", "SpiDev::SetOpt rd_lsb_fist\n"},
    {"SPI_IOC_WR_BITS_PER_WORD", "SpiDev::SetOpt wr bits_per_word\n"},
    {"SPI_IOC_RD_BITS_PER_WORD", "SpiDev::SetOpt rd bits_per_word\n"},
    {"SPI_IOC_WR_MAX_SPEED_HZ", "SpiDev::SetOpt wr max_speed_hz\n"},
    {"SPI_IOC_RD_MAX_SPEED_HZ", "SpiDev::SetOpt rd max_speed_hz\n"},
};

TEST_F(Spi, OptionsAreSetAndReadBackInOrder) {
  ASSERT_TRUE(device_.Open(kPath));
  tessaline_board_transcript_clear();
  EXPECT_TRUE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
  const Lines events = BusEvents();
  ASSERT_EQ(events.size(), std::size(kSteps));
  for (std::size_t i = 0; i < events.size(); ++i) {
    EXPECT_NE(events[i].find(kSteps[i].request), std::string::npos) << events[i];
  }
}

TEST_F(Spi, TheFirstRefusedOptionIsToldAndEndsIt) {
  ASSERT_TRUE(device_.Open(kPath));
  for (std::size_t i = 0; i < std::size(kSteps); ++i) {
    tessaline_board_clear_faults();
    tessaline_board_fault("spidev1.0", "*", i, 1, EINVAL);
    tessaline_board_transcript_clear();
    Printed();
    EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
    EXPECT_EQ(Printed(), kSteps[i].printed);
    EXPECT_EQ(BusEvents().size(), i + 1);
  }
}

TEST_F(Spi, ASecondOpenKeepsTheFirst) {
  ASSERT_TRUE(device_.Open(kPath));
  EXPECT_FALSE(device_.Open(kPath));
  EXPECT_EQ(Printed(), "SpiDev::Open is up\n");
  EXPECT_TRUE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
}

TEST_F(Spi, TransfersAndWrites) {
  ASSERT_TRUE(device_.Open(kPath));
  ASSERT_TRUE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
  std::array<std::uint8_t, 3> tx{0x00, 0x00, 0x00};
  std::array<std::uint8_t, 3> rx{};
  EXPECT_TRUE(device_.DoMsg(tx.data(), rx.data(), tx.size()));
  EXPECT_TRUE(device_.DoWrite(tx.data(), tx.size()));
  EXPECT_EQ(Printed(), "");
}

TEST_F(Spi, FailedTransfersAreTold) {
  ASSERT_TRUE(device_.Open(kPath));
  std::uint8_t byte = 0;
  tessaline_board_fault("spidev1.0", "*", 0, 1, EIO);
  EXPECT_FALSE(device_.DoMsg(&byte, &byte, 1));
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
  tessaline_board_fault("spidev1.0", "*", 0, 1, EIO);
  EXPECT_FALSE(device_.DoWrite(&byte, 1));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\n");
}

// --- Without a bus -------------------------------------------------------------------------

class NoSpi : public tessaline_test::BoardFixture {
 protected:
  NoSpi() : BoardFixture("K3610") {}

  SpiDev device_;
};

TEST_F(NoSpi, AFailedOpenIsToldByName) {
  EXPECT_FALSE(device_.Open("/dev/spidev7.3"));
  EXPECT_EQ(Printed(), "SpiDev::Open error! spidev_name:/dev/spidev7.3\n");
}

TEST_F(NoSpi, AFailedOpenCanBeRepeated) {
  EXPECT_FALSE(device_.Open("/dev/spidev7.3"));
  EXPECT_TRUE(device_.Open("/dev/null"));
}

TEST_F(NoSpi, CloseIsAlwaysTrue) {
  EXPECT_TRUE(device_.Close());
  ASSERT_TRUE(device_.Open("/dev/null"));
  EXPECT_TRUE(device_.Close());
  EXPECT_TRUE(device_.Close());
  EXPECT_TRUE(device_.Open("/dev/null"));
}

TEST_F(NoSpi, WhatIsNotASpiDeviceRefusesTheMode) {
  ASSERT_TRUE(device_.Open("/dev/null"));
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
  EXPECT_EQ(Printed(), "SpiDev::SetOpt wr_mode\n");
}

TEST_F(NoSpi, AClosedDeviceReachesNobodysStandardInput) {
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  const int keep = dup(STDIN_FILENO);
  ASSERT_EQ(dup2(pipe_ends[1], STDIN_FILENO), STDIN_FILENO);
  std::uint8_t byte = 0x55;
  EXPECT_FALSE(device_.DoWrite(&byte, 1));
  EXPECT_FALSE(device_.DoMsg(&byte, &byte, 1));
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, false, 8, kSpeed));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\nSpiDev::DoMsg error\nSpiDev::SetOpt wr_mode\n");
  dup2(keep, STDIN_FILENO);
  close(keep);
  close(pipe_ends[1]);
  EXPECT_EQ(read(pipe_ends[0], &byte, 1), 0);
  close(pipe_ends[0]);
}

TEST_F(NoSpi, TheObjectsEndClosesTheDevice) {
  int first = -1;
  {
    SpiDev device;
    ASSERT_TRUE(device.Open("/dev/null"));
    first = dup(0);
    close(first);
  }
  const int after = dup(0);
  close(after);
  EXPECT_LT(after, first);
}

}  // namespace
}  // namespace VeltranoSDK
