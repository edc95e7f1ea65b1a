// The SPI wrapper. Tests that need a device run on a K3910, whose sensor is on SPI.
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Devices/DeviceTest.h"
#include "Devices/bus/SpiDev.h"

namespace VeltranoSDK {
namespace {

using DevFOps::SpiDev;
using ::testing::StartsWith;

constexpr char kPath[] = "/dev/spidev1.0";
constexpr char kBus[] = "spi1.0";  // the name in the transcript
constexpr std::uint32_t kSpeed = 10'000'000;
constexpr std::uint8_t kBits = 8;

class Spi : public tessaline_test::BoardFixture {
 protected:
  Spi() : BoardFixture("K3910") {}

  void SetUp() override {
    BoardFixture::SetUp();
    ASSERT_TRUE(device_.Open(kPath));
    tessaline_board_transcript_clear();
  }

  static Lines BusEvents() {
    Lines events;
    for (const std::string& event : Events()) {
      if (event.starts_with(kBus)) events.push_back(event);
    }
    return events;
  }

  static std::string Event(const std::string& what) { return kBus + (' ' + what); }

  SpiDev device_;
};

struct Step {
  const char* request;
  const char* value;
  const char* printed;
};
// Mode 3, most significant bit first, kBits, kSpeed.
constexpr Step kSteps[]{
    {"SPI_IOC_WR_MODE", "3", "SpiDev::SetOpt wr_mode\n"},
    {"SPI_IOC_RD_MODE", "3", "SpiDev::SetOpt rd_mode\n"},
    {"SPI_IOC_WR_LSB_FIRST", "0", "SpiDev::SetOpt wr_lsb_fist\n"},
    {"SPI_IOC_RD_LSB_FIRST", "0", "SpiDev::SetOpt rd_lsb_fist\n"},
    {"SPI_IOC_WR_BITS_PER_WORD", "8", "SpiDev::SetOpt wr bits_per_word\n"},
    {"SPI_IOC_RD_BITS_PER_WORD", "8", "SpiDev::SetOpt rd bits_per_word\n"},
    {"SPI_IOC_WR_MAX_SPEED_HZ", "10000000", "SpiDev::SetOpt wr max_speed_hz\n"},
    {"SPI_IOC_RD_MAX_SPEED_HZ", "10000000", "SpiDev::SetOpt rd max_speed_hz\n"},
};

TEST_F(Spi, OptionsAreSetAndReadBackInOrder) {
  EXPECT_TRUE(device_.SetOpt(SpiDev::kMode3, false, kBits, kSpeed));
  Lines expected;
  for (const auto& [request, value, printed] : kSteps) {
    expected.push_back(Event(request + (' ' + std::string(value))));
  }
  EXPECT_EQ(BusEvents(), expected);
  EXPECT_EQ(Printed(), "");
}

TEST_F(Spi, EveryModeIsItsPolarityAndPhase) {
  const std::pair<SpiDev::SpiMode, std::uint8_t> rows[]{{SpiDev::kMode0, SPI_MODE_0},
                                                        {SpiDev::kMode1, SPI_MODE_1},
                                                        {SpiDev::kMode2, SPI_MODE_2},
                                                        {SpiDev::kMode3, SPI_MODE_3}};
  for (const auto& [mode, bits] : rows) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(device_.SetOpt(mode, false, kBits, kSpeed));
    EXPECT_EQ(BusEvents().front(), Event("SPI_IOC_WR_MODE " + std::to_string(bits)));
  }
}

// The bus transfers bytes, most significant bit first, and needs a clock.
TEST_F(Spi, WhatTheBusCannotDoIsRefused) {
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, true, kBits, kSpeed));
  EXPECT_EQ(Printed(), "SpiDev::SetOpt wr_lsb_fist\n");
  EXPECT_THAT(BusEvents().back(), StartsWith(Event("SPI_IOC_WR_LSB_FIRST 1 ")));
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, false, 16, kSpeed));
  EXPECT_EQ(Printed(), "SpiDev::SetOpt wr bits_per_word\n");
  EXPECT_THAT(BusEvents().back(), StartsWith(Event("SPI_IOC_WR_BITS_PER_WORD 16 ")));
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode0, false, kBits, 0));
  EXPECT_EQ(Printed(), "SpiDev::SetOpt wr max_speed_hz\n");
  EXPECT_THAT(BusEvents().back(), StartsWith(Event("SPI_IOC_WR_MAX_SPEED_HZ 0 ")));
}

// Reads the options directly from the driver, not through the wrapper.
TEST_F(Spi, OptionsBeforeTheRefusedOneStayInEffect) {
  ASSERT_TRUE(device_.SetOpt(SpiDev::kMode0, false, kBits, kSpeed));
  EXPECT_FALSE(device_.SetOpt(SpiDev::kMode3, false, kBits, 0));
  const int fd = open(kPath, O_RDWR);
  std::uint8_t mode = 0;
  std::uint32_t speed = 0;
  EXPECT_EQ(ioctl(fd, SPI_IOC_RD_MODE, &mode), 0);
  EXPECT_EQ(ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
  close(fd);
  EXPECT_EQ(mode, SPI_MODE_3);
  EXPECT_EQ(speed, kSpeed);
}

TEST_F(Spi, TheFirstRefusedOptionIsToldAndEndsIt) {
  for (std::size_t i = 0; i < std::size(kSteps); ++i) {
    tessaline_board_clear_faults();
    tessaline_board_fault(kBus, kSteps[i].request, 0, 1, EINVAL);
    tessaline_board_transcript_clear();
    Printed();
    EXPECT_FALSE(device_.SetOpt(SpiDev::kMode3, false, kBits, kSpeed));
    EXPECT_EQ(Printed(), kSteps[i].printed);
    EXPECT_EQ(BusEvents().size(), i + 1);
  }
}

TEST_F(Spi, ASecondOpenKeepsTheFirst) {
  EXPECT_FALSE(device_.Open(kPath));
  EXPECT_EQ(Printed(), "SpiDev::Open is up\n");
  EXPECT_EQ(tessaline_board_open_files(kBus), 1);
  EXPECT_TRUE(device_.SetOpt(SpiDev::kMode3, false, kBits, kSpeed));
}

TEST_F(Spi, CloseAndTheObjectsEndCloseTheDevice) {
  EXPECT_TRUE(device_.Close());
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
  {
    SpiDev other;
    ASSERT_TRUE(other.Open(kPath));
    EXPECT_EQ(tessaline_board_open_files(kBus), 1);
  }
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
}

// The sensor's frames have an address, with bit 15 set for a write, and then the value.
TEST_F(Spi, TransfersAndWrites) {
  ASSERT_TRUE(device_.SetOpt(SpiDev::kMode0, false, kBits, kSpeed));
  std::array<std::uint8_t, 3> write_frame{0x80, 0x12, 0x5A};
  EXPECT_TRUE(device_.DoWrite(write_frame.data(), write_frame.size()));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x0012), 0x5A);
  ASSERT_EQ(tessaline_board_chip_set("sensor", 0x0012, 0xC3), 0);
  std::array<std::uint8_t, 3> tx{0x00, 0x12, 0x00};
  std::array<std::uint8_t, 3> rx{};
  EXPECT_TRUE(device_.DoMsg(tx.data(), rx.data(), tx.size()));
  EXPECT_EQ(rx[2], 0xC3);
  EXPECT_EQ(Printed(), "");
}

TEST_F(Spi, FailedTransfersAreTold) {
  std::uint8_t byte = 0;
  tessaline_board_fault(kBus, "*", 0, 1, EIO);
  EXPECT_FALSE(device_.DoMsg(&byte, &byte, 1));
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
  tessaline_board_fault(kBus, "write", 0, 1, EIO);
  EXPECT_FALSE(device_.DoWrite(&byte, 1));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\n");
}

TEST_F(Spi, ATransferOfNothingIsAFailedOne) {
  std::uint8_t byte = 0;
  EXPECT_TRUE(device_.DoMsg(&byte, &byte, 1));
  EXPECT_FALSE(device_.DoMsg(&byte, &byte, 0));
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
}

// --- Without a bus -------------------------------------------------------------------------

class NoSpi : public tessaline_test::BoardFixture {
 protected:
  NoSpi() : BoardFixture("K3610") {}

  // An ordinary file stores what is written to it, so that the test can check it.
  class File {
   public:
    File() : fd_(mkstemp(path_)) {}
    ~File() {
      unlink(path_);
      close(fd_);
    }
    const char* path() const { return path_; }
    std::string Content() const {
      char content[16];
      const ssize_t size = pread(fd_, content, sizeof content, 0);
      return size < 0 ? "unreadable" : std::string(content, static_cast<std::size_t>(size));
    }

   private:
    char path_[32] = "/tmp/tessaline-spi-XXXXXX";
    int fd_;
  };

  static bool WriteText(SpiDev& device, std::string text) {
    return device.DoWrite(reinterpret_cast<std::uint8_t*>(text.data()),
                          static_cast<std::uint32_t>(text.size()));
  }

  SpiDev device_;
};

TEST_F(NoSpi, ASecondOpenIsRefusedAndKeepsTheFirst) {
  const File first;
  const File second;
  ASSERT_TRUE(device_.Open(first.path()));
  EXPECT_FALSE(device_.Open(second.path()));
  EXPECT_EQ(Printed(), "SpiDev::Open is up\n");
  EXPECT_TRUE(WriteText(device_, "abc"));
  EXPECT_EQ(first.Content(), "abc");
  EXPECT_EQ(second.Content(), "");
}

TEST_F(NoSpi, WritesTheBytesAsTheyAre) {
  const File file;
  ASSERT_TRUE(device_.Open(file.path()));
  const std::string bytes("\x42\x00\xff", 3);
  EXPECT_TRUE(WriteText(device_, bytes));
  EXPECT_EQ(file.Content(), bytes);
  EXPECT_EQ(Printed(), "");
}

TEST_F(NoSpi, AFailedWriteIsTold) {
  ASSERT_TRUE(device_.Open("/dev/full"));
  EXPECT_FALSE(WriteText(device_, "abc"));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\n");
}

TEST_F(NoSpi, AFailedTransferIsTold) {
  ASSERT_TRUE(device_.Open("/dev/null"));
  std::uint8_t byte = 0;
  EXPECT_FALSE(device_.DoMsg(&byte, &byte, 1));
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
}

TEST_F(NoSpi, AFailedOpenIsToldByName) {
  EXPECT_FALSE(device_.Open("/dev/spidev7.3"));
  EXPECT_EQ(Printed(), "SpiDev::Open error! spidev_name:/dev/spidev7.3\n");
}

TEST_F(NoSpi, AFailedOpenCanBeRepeated) {
  EXPECT_FALSE(device_.Open("/dev/spidev7.3"));
  EXPECT_TRUE(device_.Open("/dev/null"));
}

TEST_F(NoSpi, CloseIsAlwaysTrue) {
  const int input = open("/dev/null", O_RDONLY);
  dup2(input, STDIN_FILENO);
  EXPECT_TRUE(device_.Close());
  EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
  close(input);
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
