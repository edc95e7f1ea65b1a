// The GSPRINT6502BSI's bus on a K3910: the bytes of every operation.
#include <cerrno>

#include "Devices/DeviceTest.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSIInterface.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr char kBus[] = "spi1.0";

const Lines kOptions{"SPI_IOC_WR_MODE 0",
                     "SPI_IOC_RD_MODE 0",
                     "SPI_IOC_WR_LSB_FIRST 0",
                     "SPI_IOC_RD_LSB_FIRST 0",
                     "SPI_IOC_WR_BITS_PER_WORD 8",
                     "SPI_IOC_RD_BITS_PER_WORD 8",
                     "SPI_IOC_WR_MAX_SPEED_HZ 10000000",
                     "SPI_IOC_RD_MAX_SPEED_HZ 10000000"};

class GsprintSpi : public tessaline_test::BoardFixture {
 protected:
  GsprintSpi() : BoardFixture("K3910") {}

  // The bus traffic while the bus is open.
  static Lines Opened(const Lines& transfers) {
    Lines lines = kOptions;
    lines.insert(lines.end(), transfers.begin(), transfers.end());
    return lines;
  }

  // All events, including sleeps.
  static Lines Traffic() {
    Lines lines;
    for (const std::string& event : Events()) {
      lines.push_back(event.starts_with("spi1.0 ") ? event.substr(7) : event);
    }
    return lines;
  }

  static void SetChip(unsigned address, unsigned value) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
  }
  static int Chip(unsigned address) { return tessaline_board_chip_get("sensor", address); }

  GSPRINT6502BSIInterface bus_;
};

TEST_F(GsprintSpi, AReadIsThreeBytesBothWays) {
  SetChip(0x2501, 0xA5);
  EXPECT_EQ(bus_.Read(0x2501), 0xA5);
  EXPECT_THAT(Traffic(), ElementsAreArray(Opened({"tx 25 01 00 rx 00 00 a5"})));
}

TEST_F(GsprintSpi, AReadDropsTheSixteenthAddressBit) {
  SetChip(0x7FFE, 0x5A);
  EXPECT_EQ(bus_.Read(0xFFFE), 0x5A);
  EXPECT_THAT(Traffic(), ElementsAreArray(Opened({"tx 7f fe 00 rx 00 00 5a"})));
}

TEST_F(GsprintSpi, AWriteHasTheTopBitSet) {
  EXPECT_TRUE(bus_.Write(0x0601, 0x7E));
  EXPECT_THAT(Traffic(), ElementsAreArray(Opened({"write 86 01 7e"})));
  EXPECT_EQ(Chip(0x0601), 0x7E);
}

TEST_F(GsprintSpi, AListIsOneFrameARegisterAndOneOpening) {
  EXPECT_TRUE(bus_.BatchWrite({{0x00A0, 0x01}, {0x1C00, 0x02}, {0x00A0, 0x03}}));
  EXPECT_THAT(Traffic(),
              ElementsAreArray(Opened({"write 80 a0 01", "write 9c 00 02", "write 80 a0 03"})));
}

TEST_F(GsprintSpi, AnEmptyListOnlyOpensTheBus) {
  EXPECT_TRUE(bus_.BatchWrite(std::vector<std::pair<unsigned short, unsigned char>>{}));
  EXPECT_THAT(Traffic(), ElementsAreArray(kOptions));
}

TEST_F(GsprintSpi, ABurstIsOneFrame) {
  EXPECT_TRUE(bus_.BatchWrite(0x0219, std::vector<unsigned char>{0x11, 0x22, 0x33}));
  EXPECT_THAT(Traffic(), ElementsAreArray(Opened({"write 82 19 11 22 33"})));
  EXPECT_EQ(Chip(0x021B), 0x33);
}

TEST_F(GsprintSpi, TheBusIsClosedAfterEveryAccess) {
  bus_.Read(1);
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
  bus_.Write(1, 1);
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
  bus_.BatchWrite({{0x0001, 0x01}});
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
  bus_.BatchWrite(0x0001, std::vector<unsigned char>{1});
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
}

TEST_F(GsprintSpi, AnythingThatFailsIsToldBySpiDevAlone) {
  tessaline_board_fault(kBus, "*", 0, 0, EIO);
  EXPECT_TRUE(bus_.Write(1, 1));
  EXPECT_EQ(Printed(), "SpiDev::Open error! spidev_name:/dev/spidev1.0\n");
  EXPECT_EQ(bus_.Read(1), 0);
  EXPECT_EQ(Printed(), "SpiDev::Open error! spidev_name:/dev/spidev1.0\n");

  tessaline_board_clear_faults();
  tessaline_board_fault(kBus, "write", 0, 1, EIO);
  EXPECT_TRUE(bus_.BatchWrite({{0x0001, 0x01}, {0x0002, 0x02}}));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\n");
  EXPECT_EQ(Chip(2), 2);

  tessaline_board_clear_faults();
  tessaline_board_fault(kBus, "SPI_IOC_MESSAGE", 0, 1, EIO);
  SetChip(5, 5);
  EXPECT_EQ(bus_.Read(5), 0);
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
}

TEST_F(GsprintSpi, NothingIsTransferredWithAnOptionRefused) {
  tessaline_board_fault(kBus, "SPI_IOC_WR_MAX_SPEED_HZ", 0, 0, EINVAL);
  SetChip(5, 5);
  EXPECT_EQ(bus_.Read(5), 0);
  EXPECT_TRUE(bus_.Write(5, 6));
  EXPECT_TRUE(bus_.BatchWrite({{0x0005, 0x06}}));
  EXPECT_TRUE(bus_.BatchWrite(0x0005, std::vector<unsigned char>{6}));
  const std::string told = "SpiDev::SetOpt wr max_speed_hz\n";
  EXPECT_EQ(Printed(), told + told + told + told);
  EXPECT_EQ(Chip(5), 5);
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
}

}  // namespace
}  // namespace VeltranoSDK
