// The e2v sensor's bus on a K4010: the bytes of every operation, and what is printed.
#include <cerrno>

#include "Devices/DeviceTest.h"
#include "Devices/sensor/e2v_flash4k/E2vSpiInterface.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kBus[] = "spi0.0";

class E2vSpi : public tessaline_test::BoardFixture {
 protected:
  E2vSpi() : BoardFixture("K4010") {}

  void SetUp() override {
    BoardFixture::SetUp();
    bus_ = std::make_unique<E2vSpiInterface>();
    tessaline_board_transcript_clear();
  }

  static Lines Bytes() {
    Lines lines;
    for (const std::string& event : Events()) {
      if (event.starts_with("spi0.0 ")) lines.push_back(event.substr(7));
    }
    return lines;
  }

  static void SetChip(unsigned address, unsigned value) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
  }

  static void FailWrite(unsigned skip) { tessaline_board_fault(kBus, "write", skip, 1, EIO); }
  static void FailRead(unsigned skip, unsigned count = 1) {
    tessaline_board_fault(kBus, "SPI_IOC_MESSAGE", skip, count, EIO);
  }

  std::unique_ptr<E2vSpiInterface> bus_;
};

TEST_F(E2vSpi, IsOpenWithItsOptionsFromConstructionOn) {
  bus_.reset();
  EXPECT_EQ(tessaline_board_open_files(kBus), 0);
  bus_ = std::make_unique<E2vSpiInterface>();
  EXPECT_THAT(Bytes(),
              ElementsAre("SPI_IOC_WR_MODE 0", "SPI_IOC_RD_MODE 0", "SPI_IOC_WR_LSB_FIRST 0",
                          "SPI_IOC_RD_LSB_FIRST 0", "SPI_IOC_WR_BITS_PER_WORD 8",
                          "SPI_IOC_RD_BITS_PER_WORD 8", "SPI_IOC_WR_MAX_SPEED_HZ 20000000",
                          "SPI_IOC_RD_MAX_SPEED_HZ 20000000"));
  EXPECT_EQ(tessaline_board_open_files(kBus), 1);
  bus_->Start();
  bus_->Read(1);
  EXPECT_EQ(tessaline_board_open_files(kBus), 1);
}

TEST_F(E2vSpi, AReadIsSixBytesBothWays) {
  SetChip(0x0123, 0xABCD);
  EXPECT_EQ(bus_->Read(0x0123), std::pair(true, static_cast<unsigned short>(0xABCD)));
  EXPECT_THAT(Bytes(), ElementsAre("tx 02 01 23 00 00 00 rx 00 00 00 00 ab cd"));
}

TEST_F(E2vSpi, AFailedReadSaysSo) {
  FailRead(0);
  EXPECT_FALSE(bus_->Read(1).first);
  EXPECT_EQ(Printed(), "SpiDev::DoMsg error\n");
}

TEST_F(E2vSpi, WritesAndCommands) {
  EXPECT_TRUE(bus_->Write(0x014D, 0x12FE));
  EXPECT_TRUE(bus_->Wpage(11));
  EXPECT_TRUE(bus_->ConfigSlice(1, 2, 3, 6));
  EXPECT_TRUE(bus_->Start());
  EXPECT_TRUE(bus_->Stop());
  EXPECT_THAT(Bytes(), ElementsAre("write 42 01 4d 12 fe", "write 60 0b", "write bb 06 03 02 01",
                                   "write 90", "write 88"));
}

TEST_F(E2vSpi, FailedWritesAndCommandsSaySo) {
  tessaline_board_fault(kBus, "write", 0, 0, EIO);
  EXPECT_FALSE(bus_->Write(1, 2));
  EXPECT_FALSE(bus_->Wpage(1));
  EXPECT_FALSE(bus_->ConfigSlice(1, 2, 3, 6));
  EXPECT_FALSE(bus_->Start());
  EXPECT_FALSE(bus_->Stop());
}

// --- Updates -------------------------------------------------------------------------------

TEST_F(E2vSpi, UpdateOfRegistersAsksUntilItIsDone) {
  EXPECT_TRUE(bus_->UpdateRegisters());
  EXPECT_EQ(Printed(),
            "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = 16!! busy!\n"
            "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = 16!! busy!\n"
            "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = 0!! pass!\n");
  EXPECT_THAT(Bytes(), ElementsAre("write 81", "tx 02 00 00 00 00 00 rx 00 00 00 00 00 10",
                                   "tx 02 00 00 00 00 00 rx 00 00 00 00 00 10",
                                   "tx 02 00 00 00 00 00 rx 00 00 00 00 00 00"));
}

TEST_F(E2vSpi, UpdateOfTheRegionAsksUntilItIsDone) {
  EXPECT_TRUE(bus_->UpdateROI());
  EXPECT_EQ(Printed(),
            "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = 1!! busy!\n"
            "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = 1!! busy!\n"
            "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = 0!! pass!\n");
  EXPECT_THAT(Bytes(), ElementsAre("write 82", "tx 02 00 00 00 00 00 rx 00 00 00 00 00 01",
                                   "tx 02 00 00 00 00 00 rx 00 00 00 00 00 01",
                                   "tx 02 00 00 00 00 00 rx 00 00 00 00 00 00"));
}

TEST_F(E2vSpi, UpdatesMindTheirOwnBusyBitOnly) {
  SetChip(0, 0xFFEF);
  EXPECT_TRUE(bus_->UpdateRegisters());
  EXPECT_EQ(Printed(), "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = 65519!! pass!\n");
  SetChip(0, 0xFFFE);
  EXPECT_TRUE(bus_->UpdateROI());
  EXPECT_EQ(Printed(), "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = 65534!! pass!\n");
}

TEST_F(E2vSpi, UpdatesAskAgainAfterAFailedRead) {
  SetChip(0, 0);
  FailRead(0, 2);
  EXPECT_TRUE(bus_->UpdateRegisters());
  EXPECT_EQ(Printed(),
            "SpiDev::DoMsg error\nE2vFlash4k::UpdateRegisters Read 0x0000 failed!\n"
            "SpiDev::DoMsg error\nE2vFlash4k::UpdateRegisters Read 0x0000 failed!\n"
            "E2vFlash4k UpdateRegisters e2v_spi_.Read(0x0000) = 0!! pass!\n");
  tessaline_board_clear_faults();
  FailRead(0);
  EXPECT_TRUE(bus_->UpdateROI());
  EXPECT_EQ(Printed(),
            "SpiDev::DoMsg error\nE2vFlash4k::UpdateROI Read 0x0000 failed!\n"
            "E2vFlash4k UpdateROI e2v_spi_.Read(0x0000) = 0!! pass!\n");
}

TEST_F(E2vSpi, AnUpdateThatCannotBeSentIsOver) {
  tessaline_board_fault(kBus, "write", 0, 0, EIO);
  EXPECT_FALSE(bus_->UpdateRegisters());
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\nE2vSpiInterface::UpdateRegisters() error!\n");
  EXPECT_FALSE(bus_->UpdateROI());
  EXPECT_EQ(Printed(), "SpiDev::DoWrite error\nE2vSpiInterface::UpdateROI() error!\n");
  for (const std::string& line : Bytes()) EXPECT_FALSE(line.starts_with("tx")) << line;
}

// --- The dump ------------------------------------------------------------------------------

constexpr char kDumpRead[] = "tx 02 00 00 00 ";

// The bus traffic of a dump, with the registers of a page shortened to "page".
Lines Shortened(const Lines& bytes) {
  Lines lines;
  for (const std::string& line : bytes)
    lines.push_back(line.starts_with(kDumpRead) ? "page" : line);
  return lines;
}

TEST_F(E2vSpi, DumpsEveryPageInUse) {
  bus_->ReadAll();
  EXPECT_THAT(Shortened(Bytes()),
              ElementsAre("write 60 00", "page", "write 60 01", "page", "write 60 02", "page",
                          "write 60 03", "page", "write 60 06", "page", "write 60 00",
                          "write 42 00 70 00 00", "write 60 0b", "page", "write 60 00"));
}

TEST_F(E2vSpi, ADumpedPageIsOneTransferOf1024Registers) {
  SetChip(0x000, 0x0081);
  SetChip(0x3FF, 0xBEEF);
  SetChip(0xB0001, 0x00C0);
  bus_->ReadAll();
  const std::string printed = Printed();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 6 * 1024);
  EXPECT_TRUE(
      printed.starts_with("E2vSpiInterface::ReadAll(): page:0, reg: 0x0, value: 0x81\n"
                          "E2vSpiInterface::ReadAll(): page:0, reg: 0x1, value: 0x2030\n"))
      << printed.substr(0, 200);
  EXPECT_THAT(printed, ::testing::HasSubstr("page:0, reg: 0x3ff, value: 0xbeef\n"));
  EXPECT_THAT(printed, ::testing::HasSubstr("page:b, reg: 0x1, value: 0xc0\n"));
  for (const std::string& line : Bytes()) {
    if (!line.starts_with(kDumpRead)) continue;
    // "tx" and "rx", three characters per byte, and a blank in between.
    EXPECT_EQ(line.size(), 2 * (2 + 3 * 2052) + 1u);
  }
}

// What a dump prints after its last register if the given write fails.
struct DumpFailure {
  unsigned write;
  const char* told;
};
constexpr DumpFailure kDumpFailures[]{
    {0, "E2vSpiInterface::ReadAll() Wpage failed!\n"},
    {1, "E2vSpiInterface::ReadAll() Wpage failed!\n"},
    {4, "E2vSpiInterface::ReadAll() Wpage failed!\n"},
    {5, "E2vSpiInterface::ReadAll() Wpage failed!\n"},
    {6, "E2vFlash4k::RegisterInitialize Write 0x0070 failed!\n"},
    {7, "E2vSpiInterface::ReadAll() Wpage failed!\n"},
    {8, "E2vSpiInterface::ReadAll() Wpage 0x00 failed!\n"},
};

TEST_F(E2vSpi, ADumpEndsAtItsFirstFailureAndSendsNothingMore) {
  for (const auto& [write, told] : kDumpFailures) {
    tessaline_board_clear_faults();
    tessaline_board_transcript_clear();
    FailWrite(write);
    Printed();
    bus_->ReadAll();
    std::string printed = Printed();
    printed.erase(0, printed.find("SpiDev"));
    EXPECT_EQ(printed, std::string("SpiDev::DoWrite error\n") + told) << write;
    EXPECT_EQ(Bytes().back(), "write failed: EIO") << write;
  }
}

TEST_F(E2vSpi, APageThatCannotBeReadEndsTheDump) {
  FailRead(1);
  bus_->ReadAll();
  const std::string printed = Printed();
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 1024 + 1);
  EXPECT_TRUE(printed.ends_with("\nSpiDev::DoMsg error\n"));
  Lines bytes = Shortened(Bytes());
  ASSERT_EQ(bytes.size(), 5u);
  EXPECT_EQ(bytes[2], "write 60 01");
  EXPECT_EQ(bytes[4], "write 60 00");
}

// --- Without a device ----------------------------------------------------------------------

class NoE2vSpi : public tessaline_test::BoardFixture {
 protected:
  NoE2vSpi() : BoardFixture("K3610") {}
};

TEST_F(NoE2vSpi, IsToldOnceAndFailsEverything) {
  E2vSpiInterface bus;
  EXPECT_EQ(Printed(), "SpiDev::Open error! spidev_name:/dev/spidev0.0\n");
  EXPECT_FALSE(bus.Read(1).first);
  EXPECT_FALSE(bus.Write(1, 1));
  EXPECT_FALSE(bus.UpdateRegisters());
  EXPECT_FALSE(bus.UpdateROI());
}

}  // namespace
}  // namespace VeltranoSDK
