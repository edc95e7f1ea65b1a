// The image sensors on SPI, byte by byte, as a spidev program accesses them.

#include <gmock/gmock.h>
#include <sys/mman.h>

#include <memory>

#include "SpiClient.h"

namespace {

namespace fpga = VeltranoSDK::fpga;
using board_test::BoardTest;
using board_test::Bytes;
using board_test::Descriptor;
using board_test::SpiClient;
using testing::Each;
using testing::ElementsAre;

class SensorTest : public BoardTest {
 protected:
  // Drives the FPGA's reset line to the sensor down and up again.
  static void PulseReset(fpga::RegionBases regions) {
    for (const std::uint32_t level : {1u, 0u, 1u}) {
      const Descriptor memory("/dev/mem", O_RDWR);
      void* block = ::mmap(nullptr, 255, PROT_READ | PROT_WRITE, MAP_SHARED, memory.Get(),
                           fpga::BaseAddress(fpga::Block::kImage0, regions));
      static_cast<volatile std::uint32_t*>(block)[fpga::kReg.CMOS_WORK_MODE.Index()] = level;
      ::munmap(block, 255);
    }
  }

  static int Sensor(unsigned address) { return tessaline_board_chip_get("sensor", address); }
  static void Set(unsigned address, unsigned value) {
    EXPECT_EQ(tessaline_board_chip_set("sensor", address, value), 0);
  }

  const Bytes& Exchange(const Bytes& tx) { return answer_ = client_->Exchange(tx); }

  void Connect(const char* model, const char* path) {
    Select(model);
    client_ = std::make_unique<SpiClient>(path);
    ASSERT_TRUE(client_->IsOpen());
  }

  std::unique_ptr<SpiClient> client_;
  Bytes answer_;
};

// --- GMAX2509

class Gmax2509 : public SensorTest {
 protected:
  void SetUp() override { Connect("K3820", "/dev/spidev1.0"); }

  void Write(unsigned address, unsigned value) {
    Exchange({static_cast<std::uint8_t>(0x80 | address >> 1),
              static_cast<std::uint8_t>((address & 1) << 7 | value >> 1),
              static_cast<std::uint8_t>((value & 1) << 7)});
  }

  unsigned Read(unsigned address) {
    const Bytes& rx = Exchange({static_cast<std::uint8_t>(address >> 1),
                                static_cast<std::uint8_t>((address & 1) << 7), 0});
    return (rx[1] << 2 | rx[2] >> 6) & 0xFF;
  }
};

TEST_F(Gmax2509, TakesAWriteAndAnswersAReadABitLater) {
  Exchange({0xDA, 0xA0, 0x80});
  EXPECT_EQ(Sensor(0xB5), 0x41);
  Set(0xC0, 0xA7);
  EXPECT_THAT(Exchange({0x60, 0x00, 0x00}), ElementsAre(0x00, 0xA7 >> 2, 0xC0));
}

TEST_F(Gmax2509, EveryBitOfAddressAndValueCounts) {
  for (unsigned bit = 0; bit < 8; ++bit) {
    Write(1u << bit, 0x80u >> bit);
    EXPECT_EQ(Sensor(1u << bit), 0x80 >> bit);
  }
  for (const unsigned value : {0x00u, 0x01u, 0x55u, 0xAAu, 0xFFu}) {
    Write(0x35, value);
    EXPECT_EQ(Read(0x35), value);
  }
}

TEST_F(Gmax2509, TakesWritesWithoutListening) {
  EXPECT_EQ(client_->Write({0xDA, 0xA2, 0x80}), 3);
  EXPECT_EQ(Sensor(0xB5), 0x45);
}

TEST_F(Gmax2509, IgnoresAFrameCutShort) {
  const int before = Sensor(0xB5);
  EXPECT_EQ(client_->Write({0xDA, 0xA2}), 2);
  EXPECT_EQ(Sensor(0xB5), before);
}

TEST_F(Gmax2509, TemperatureIsSetFromTheBenchOnly) {
  EXPECT_GT(Read(0xC1) << 8 | Read(0xC0), 0u);
  Write(0xC0, 0x12);
  EXPECT_NE(Read(0xC0), 0x12u);
  Set(0xC0, 0x34);
  Set(0xC1, 0x12);
  EXPECT_EQ(Read(0xC1) << 8 | Read(0xC0), 0x1234u);
}

TEST_F(Gmax2509, TheResetLineRestoresThePowerUpValues) {
  Write(0x00, 0x02);
  Write(0xDE, 0x00);
  Set(0xC0, 0x34);
  PulseReset(fpga::kZynqRegions);
  EXPECT_EQ(Read(0x00), 0u);
  EXPECT_EQ(Read(0xDE), 0x40u);
  EXPECT_EQ(Read(0x13), 4u);
  EXPECT_EQ(Read(0xC0), 0x34u) << "a reset does not cool it";
}

TEST_F(Gmax2509, Has256Registers) {
  EXPECT_EQ(Sensor(0x100), -1);
  EXPECT_EQ(tessaline_board_chip_set("sensor", 0x100, 0), -1);
}

// --- GSPRINT6502BSI

class Gsprint6502 : public SensorTest {
 protected:
  void SetUp() override { Connect("K3920", "/dev/spidev1.0"); }
};

TEST_F(Gsprint6502, WritesAndReadsSingleRegisters) {
  Exchange({0xA4, 0x00, 0x5A});
  EXPECT_EQ(Sensor(0x2400), 0x5A);
  EXPECT_THAT(Exchange({0x24, 0x00, 0x00}), ElementsAre(0, 0, 0x5A));
}

TEST_F(Gsprint6502, CountsAddressesUpWithinATransfer) {
  EXPECT_EQ(client_->Write({0x82, 0x19, 0xA0, 0x05, 0xA1, 0x06, 0xA2, 0x07}), 8);
  EXPECT_EQ(Sensor(0x0219), 0xA0);
  EXPECT_EQ(Sensor(0x021E), 0x07);
  EXPECT_THAT(Exchange({0x02, 0x19, 0, 0, 0}), ElementsAre(0, 0, 0xA0, 0x05, 0xA1));
  EXPECT_EQ(client_->Write({0xFF, 0xFF, 0x11, 0x22}), 4);
  EXPECT_EQ(Sensor(0x7FFF), 0x11);
  EXPECT_EQ(Sensor(0x0000), 0x22);
}

TEST_F(Gsprint6502, TemperatureIsSetFromTheBenchOnly) {
  Set(0x2500, 0x34);
  Set(0x2501, 0x12);
  Exchange({0xA5, 0x00, 0x99, 0x98});
  EXPECT_THAT(Exchange({0x25, 0x00, 0, 0}), ElementsAre(0, 0, 0x34, 0x12));
  PulseReset(fpga::kZynqRegions);
  EXPECT_EQ(Sensor(0x2500), 0x34) << "a reset does not cool it";
  EXPECT_EQ(Sensor(0x2501), 0x12);
}

TEST_F(Gsprint6502, TheResetLineRestoresThePowerUpValues) {
  Exchange({0x80, 0x00, 0x01});
  Exchange({0x81, 0x40, 0x99});
  PulseReset(fpga::kZynqRegions);
  EXPECT_EQ(Sensor(0x0000), 0);
  EXPECT_EQ(Sensor(0x0140), 4);
  EXPECT_EQ(Sensor(0x8000), -1);
}

// --- e2v Flash 4K

class E2vFlash4k : public SensorTest {
 protected:
  static constexpr unsigned kOwnStatus = 0x10000;

  void SetUp() override { Connect("K4010", "/dev/spidev0.0"); }

  void Write(unsigned address, unsigned value) {
    EXPECT_EQ(client_->Write({0x42, High(address), Low(address), High(value), Low(value)}), 5);
  }
  unsigned Read(unsigned address) {
    const Bytes& rx = Exchange({0x02, High(address), Low(address), 0, 0, 0});
    return static_cast<unsigned>(rx[4] << 8 | rx[5]);
  }
  void Page(std::uint8_t page) { EXPECT_EQ(client_->Write({0x60, page}), 2); }

  // Counts the reads of the status until the masked bits have the expected value.
  unsigned Polls(unsigned mask, unsigned wanted) {
    unsigned polls = 1;
    while ((Read(0) & mask) != wanted && polls < 100) ++polls;
    return polls;
  }

  static std::uint8_t High(unsigned value) { return static_cast<std::uint8_t>(value >> 8); }
  static std::uint8_t Low(unsigned value) { return static_cast<std::uint8_t>(value); }
};

TEST_F(E2vFlash4k, IdentifiesItself) {
  EXPECT_EQ(Read(0x0001), 0x2030u);
  EXPECT_EQ(Read(0x0002), 0x25F9u);
  Write(0x0001, 0);
  EXPECT_EQ(Read(0x0001), 0x2030u);
  Set(0x0001, 0x1234);  // a new chip
  EXPECT_EQ(Read(0x0001), 0x1234u);
}

TEST_F(E2vFlash4k, EveryPageHasItsOwnRegisters) {
  Write(0x0070, 0x1111);
  Page(11);
  EXPECT_EQ(Read(0x0070), 0u);
  Write(0x0070, 0x2222);
  Page(0);
  EXPECT_EQ(Read(0x0070), 0x1111u);
  EXPECT_EQ(Sensor(11 << 16 | 0x0070), 0x2222);
  EXPECT_EQ(Sensor(0x100 << 16), -1);
}

TEST_F(E2vFlash4k, ReadsAWholePageInOneTransfer) {
  Page(3);
  Write(0x0000, 0xBEEF);
  Write(0x03FF, 0xCAFE);
  Bytes tx(2052);
  tx[0] = 0x02;
  const Bytes& rx = Exchange(tx);
  EXPECT_EQ(rx[4] << 8 | rx[5], 0xBEEF);
  EXPECT_EQ(rx[2050] << 8 | rx[2051], 0xCAFE);
}

TEST_F(E2vFlash4k, ThePllsLockAWhileAfterTheyAreEnabled) {
  EXPECT_EQ(Read(0), 0u);
  Write(0x0008, 3);
  EXPECT_EQ(Polls(0x60, 0x60), 4u);
  EXPECT_EQ(Read(0) & 0x60, 0x60u);
  Write(0x0008, 3);
  EXPECT_EQ(Read(0) & 0x60, 0x60u) << "what is on stays locked";
  Write(0x0008, 0);
  EXPECT_EQ(Read(0), 0u);
}

TEST_F(E2vFlash4k, ThePllsLockForSomebodyWhoOnlyWaits) {
  Write(0x0008, 3);
  Pass(500);
  EXPECT_EQ(Read(0) & 0x60, 0x60u);
}

TEST_F(E2vFlash4k, SlicesNeedAClockAndAnAddress) {
  Write(0x0063, 1);
  EXPECT_EQ(Polls(0x80, 0x80), 100u) << "no clock";
  Write(0x0063, 0);
  Write(0x0008, 3);
  Polls(0x60, 0x60);
  Write(0x0063, 1);
  EXPECT_EQ(Polls(0x80, 0x80), 100u) << "no address";
  Write(0x0063, 0);
  EXPECT_EQ(client_->Write({0xBB, 6, 3, 2, 1}), 5);
  Write(0x0063, 1);
  EXPECT_EQ(Polls(0xE0, 0xE0), 3u);
}

TEST_F(E2vFlash4k, UpdatesAreBusyForAWhile) {
  EXPECT_EQ(client_->Write({0x81}), 1);
  EXPECT_EQ(Read(0), 0x10u);
  EXPECT_EQ(Polls(0x10, 0), 2u);
  EXPECT_EQ(client_->Write({0x82}), 1);
  EXPECT_EQ(Read(0), 0x01u);
  EXPECT_EQ(Polls(0x01, 0), 2u);
}

TEST_F(E2vFlash4k, AStatusCanBeHeldFromTheBench) {
  Set(0, 0x11);
  PulseReset(fpga::kZynqMpRegions);
  EXPECT_EQ(Polls(0x11, 0), 100u);
  Set(0, kOwnStatus);
  EXPECT_EQ(Read(0), 0u);
}

TEST_F(E2vFlash4k, TheResetLineRestoresThePowerUpValues) {
  Write(0x0008, 3);
  Polls(0x60, 0x60);
  Page(3);
  PulseReset(fpga::kZynqMpRegions);
  EXPECT_EQ(Read(0), 0u) << "page 0 again, and no lock";
  EXPECT_EQ(Read(0x0008), 0u);
  EXPECT_EQ(Read(0x0035), 63u);
  EXPECT_EQ(Read(0x0025), 134u);
}

TEST_F(E2vFlash4k, UnknownCommandsDoNothing) {
  EXPECT_EQ(client_->Write({0x42, 0x00}), 2);
  EXPECT_THAT(Exchange({0x55, 0x00, 0x01, 0x00, 0x00, 0x00}), Each(0));
}

}  // namespace
