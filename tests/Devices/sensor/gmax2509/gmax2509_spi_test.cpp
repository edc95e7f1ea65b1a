// The GMAX2509's register bus: the bytes on the wire for each access.
#include "Devices/DeviceTest.h"
#include "Devices/sensor/gmax2509/GMAX2509SpiInterface.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Lines kOptions{
    "SPI_IOC_WR_MODE 0",
    "SPI_IOC_RD_MODE 0",
    "SPI_IOC_WR_LSB_FIRST 0",
    "SPI_IOC_RD_LSB_FIRST 0",
    "SPI_IOC_WR_BITS_PER_WORD 8",
    "SPI_IOC_RD_BITS_PER_WORD 8",
    "SPI_IOC_WR_MAX_SPEED_HZ 10000000",
    "SPI_IOC_RD_MAX_SPEED_HZ 10000000",
};

class Gmax2509Spi : public tessaline_test::BoardFixture {
 protected:
  explicit Gmax2509Spi(const char* model = "K3820") : BoardFixture(model) {}

  // The bytes on the wire, without the options and pauses around them.
  static Lines OnTheWire() {
    Lines wire;
    for (const std::string& event : Events()) {
      if (event.starts_with("spi1.0 ") && event.find("SPI_IOC_") == std::string::npos) {
        wire.push_back(event.substr(event.find(' ') + 1));
      }
    }
    return wire;
  }

  GMAX2509SpiInterface spi_;
};

TEST_F(Gmax2509Spi, EveryAccessOpensSetsTransfersClosesAndPauses) {
  const auto whole = [](const std::string& transfer) {
    Lines expected;
    for (const std::string& option : kOptions) expected.push_back("spi1.0 " + option);
    expected.push_back("spi1.0 " + transfer);
    expected.push_back("sleep 10");
    return expected;
  };
  EXPECT_TRUE(spi_.Write(0xB5, 0x41));
  EXPECT_EQ(Events(), whole("write da a0 80"));
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 0);

  tessaline_board_transcript_clear();
  spi_.Read(0x13);
  EXPECT_EQ(Events(), whole("tx 09 80 00 rx 00 01 00"));
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 0);
  EXPECT_EQ(Printed(), "");
}

struct WriteRow {
  unsigned char address;
  unsigned char value;
  const char* bytes;
};
constexpr WriteRow kWrites[]{
    {0xB5, 0x41, "write da a0 80"}, {0x00, 0x00, "write 80 00 00"}, {0xFF, 0xFF, "write ff ff 80"},
    {0x01, 0x00, "write 80 80 00"}, {0x02, 0x01, "write 81 00 80"}, {0x80, 0x80, "write c0 40 00"},
};

TEST_F(Gmax2509Spi, AWriteIsFlagAddressAndDataWithoutGaps) {
  for (const WriteRow& row : kWrites) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(spi_.Write(row.address, row.value));
    EXPECT_THAT(OnTheWire(), ElementsAre(row.bytes));
    EXPECT_EQ(tessaline_board_chip_get("sensor", row.address), row.value);
  }
}

struct ReadRow {
  unsigned char address;
  unsigned char value;
  const char* bytes;
};
constexpr ReadRow kReads[]{
    {0xC0, 0x00, "tx 60 00 00 rx 00 00 00"}, {0xC0, 0xFF, "tx 60 00 00 rx 00 3f c0"},
    {0xC0, 0x01, "tx 60 00 00 rx 00 00 40"}, {0xC0, 0x80, "tx 60 00 00 rx 00 20 00"},
    {0xC1, 0x5A, "tx 60 80 00 rx 00 16 80"}, {0xDE, 0x40, "tx 6f 00 00 rx 00 10 00"},
};

TEST_F(Gmax2509Spi, AReadsDataComeOneBitLaterThanAWrites) {
  for (const ReadRow& row : kReads) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", row.address, row.value), 0);
    tessaline_board_transcript_clear();
    EXPECT_EQ(spi_.Read(row.address), row.value);
    EXPECT_THAT(OnTheWire(), ElementsAre(row.bytes));
  }
}

TEST_F(Gmax2509Spi, AnAbsentChipReadsAsZeroAndTakesEveryWrite) {
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_TRUE(spi_.Write(0xA0, 0x12));
  EXPECT_EQ(spi_.Read(0xA0), 0);
  EXPECT_EQ(Printed(), "");
}

TEST_F(Gmax2509Spi, ARefusedOptionIsToldAndNothingIsTransferred) {
  tessaline_board_fault("spi1.0", "SPI_IOC_WR_MODE", 0, 1, EINVAL);
  EXPECT_TRUE(spi_.Write(0xA0, 0x12));
  EXPECT_EQ(Printed(), "SpiDev::SetOpt wr_mode\n");
  EXPECT_THAT(OnTheWire(), IsEmpty());
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 0);
}

TEST_F(Gmax2509Spi, AFailedTransferIsToldAndReadsAsZero) {
  ASSERT_EQ(tessaline_board_chip_set("sensor", 0xA0, 0x12), 0);
  tessaline_board_fault("spi1.0", "SPI_IOC_MESSAGE", 0, 1, EIO);
  EXPECT_EQ(spi_.Read(0xA0), 0);
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
  tessaline_board_fault("spi1.0", "write", 0, 1, EIO);
  EXPECT_TRUE(spi_.Write(0xA0, 0x34));
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\n");
  EXPECT_EQ(tessaline_board_open_files("spi1.0"), 0);
  EXPECT_EQ(spi_.Read(0xA0), 0x12);
}

struct WithoutSpi : Gmax2509Spi {
  WithoutSpi() : Gmax2509Spi("K3610") {}
};

TEST_F(WithoutSpi, ADeviceThatDoesNotOpenIsToldWithEveryAccess) {
  const std::string told = "SpiDev::Open error! spidev_name:/dev/spidev1.0\n";
  EXPECT_TRUE(spi_.Write(0x00, 0x02));
  EXPECT_EQ(Printed(), told);
  EXPECT_EQ(spi_.Read(0x00), 0);
  EXPECT_EQ(Printed(), told);
  EXPECT_THAT(Events(), ElementsAre("sleep 10", "sleep 10"));
}

}  // namespace
}  // namespace VeltranoSDK
