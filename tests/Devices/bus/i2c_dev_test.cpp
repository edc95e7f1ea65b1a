// The I2C wrapper and, on top of it, the register bus of the Sony sensors.
#include <atomic>
#include <cerrno>
#include <thread>

#include "Devices/DeviceTest.h"
#include "Devices/bus/I2cDev.h"
#include "Devices/sensor/sony/ImxSensorI2cInterface.h"

namespace VeltranoSDK {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint8_t kSensor = 0x36;
constexpr std::uint8_t kNobody = 0x11;

class I2c : public DeviceTest {
 protected:
  I2cDev sensor_{"/dev/i2c-0", kSensor};
};

TEST_F(I2c, WriteIsOneMessage) {
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
  EXPECT_THAT(EventsOf("i2c-0"), ElementsAre("I2C_RETRIES 10", I2cWrite(kSensor, "30 0b 5a")));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x300B), 0x5A);
}

TEST_F(I2c, ReadFollowsTheWriteInOneTransaction) {
  tessaline_board_chip_set("sensor", 0x300B, 0xC3);
  tessaline_board_chip_set("sensor", 0x300C, 0x04);
  std::vector<std::uint8_t> read(2);
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x0B}, read));
  EXPECT_THAT(read, ElementsAre(0xC3, 0x04));
  EXPECT_THAT(EventsOf("i2c-0"), ElementsAre("I2C_RETRIES 10", I2cRead(kSensor, "30 0b", "c3 04")));
}

TEST_F(I2c, FailedReadLeavesTheCallersBytes) {
  I2cDev nobody("/dev/i2c-0", kNobody);
  std::vector<std::uint8_t> read{0x77};
  EXPECT_FALSE(nobody.I2cRdWr({0x30, 0x0B}, read));
  EXPECT_THAT(read, ElementsAre(0x77));
}

TEST_F(I2c, ATransactionThatStopsEarlyHasFailed) {
  tessaline_board_chip_set("sensor", 0x300B, 0xC3);
  tessaline_board_fault("i2c-0", "I2C_RDWR", 0, 2, TESSALINE_BOARD_SHORT);
  std::vector<std::uint8_t> read{0x77};
  EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B}, read)) << "one message of two";
  EXPECT_THAT(read, ElementsAre(0x77));
  EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A})) << "none of one";
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x300B), 0xC3);
}

TEST_F(I2c, NothingIsPrintedForATransferThatFails) {
  I2cDev nobody("/dev/i2c-0", kNobody);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(nobody.I2cRdWr({0x00})); }), "");
  EXPECT_EQ(BoardFixture::Printed(), "");
}

TEST_F(I2c, UnopenableBusIsToldWithoutATransfer) {
  tessaline_board_fault("i2c-0", "open", 0, 0, EACCES);
  std::vector<std::uint8_t> read(1);
  const std::string told = "I2cDev::Open() Unable to open i2c control file: Permission denied\n";
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B})); }), told);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B}, read)); }), told);
  EXPECT_THAT(EventsOf("i2c-0"), Each(::testing::StartsWith("open failed")));
}

TEST_F(I2c, MissingBusIsTold) {
  I2cDev missing("/dev/i2c-99", kSensor);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(missing.Open()); }),
            "I2cDev::Open() Unable to open i2c control file: No such file or directory\n");
}

TEST_F(I2c, RefusedRetryCountEndsTheTransaction) {
  tessaline_board_fault("i2c-0", "I2C_RETRIES", 0, 1, EINVAL);
  EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
  EXPECT_THAT(EventsOf("i2c-0"), SizeIs(1));
  EXPECT_NE(tessaline_board_chip_get("sensor", 0x300B), 0x5A);
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
}

TEST_F(I2c, NoTransactionLeavesTheBusOpen) {
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0);
  for (const char* const step : {"I2C_RDWR", "I2C_RETRIES"}) {
    tessaline_board_fault("i2c-0", step, 0, 1, EIO);
    EXPECT_FALSE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
    EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0) << step;
  }
}

TEST_F(I2c, OpenAndCloseByHand) {
  EXPECT_TRUE(sensor_.Open());
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 1);
  EXPECT_EQ(sensor_.Close(), 0);
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0);
  EXPECT_EQ(sensor_.Close(), -1);
}

TEST_F(I2c, ASecondOpenReplacesTheFirst) {
  EXPECT_TRUE(sensor_.Open());
  EXPECT_TRUE(sensor_.Open());
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 1);
}

TEST_F(I2c, TheObjectsEndClosesWhatOpenOpened) {
  { ASSERT_TRUE(I2cDev("/dev/i2c-0", kSensor).Open()); }
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0);
}

TEST_F(I2c, ATransactionLeavesAloneWhatOpenOpened) {
  ASSERT_TRUE(sensor_.Open());
  EXPECT_TRUE(sensor_.I2cRdWr({0x30, 0x0B, 0x5A}));
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 1);
  EXPECT_EQ(sensor_.Close(), 0);
}

TEST_F(I2c, TwoThreadsOnOneClientDoNotDisturbEachOther) {
  constexpr int kRounds = 2000;
  std::atomic<int> failures{0};
  const auto use = [&](std::uint8_t reg) {
    std::vector<std::uint8_t> read(1);
    for (int i = 0; i < kRounds; ++i) {
      const auto value = static_cast<std::uint8_t>(i);
      const bool done = sensor_.I2cRdWr({0x30, reg, value}) && sensor_.I2cRdWr({0x30, reg}, read);
      if (!done || read.front() != value) ++failures;
    }
  };
  std::thread other(use, 0x0B);
  use(0x0C);
  other.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(tessaline_board_open_files("i2c-0"), 0);
}

// --- Register bus of the Sony sensors ------------------------------------------------------

class ImxBus : public DeviceTest {
 protected:
  static Lines BusAndPauses() {
    Lines lines;
    for (const std::string& event : Events()) {
      if (event.find("I2C_RETRIES") == std::string::npos) lines.push_back(event);
    }
    return lines;
  }
};

TEST_F(ImxBus, WritesBigEndianAddressAndPauses) {
  ImxSensorI2cInterface bus(kSensor);
  EXPECT_TRUE(bus.Write(0x331C, 0x5A));
  EXPECT_THAT(BusAndPauses(), ElementsAre("i2c-0 " + I2cWrite(kSensor, "33 1c 5a"), "sleep 500"));
}

TEST_F(ImxBus, ReadsOneByteAndPauses) {
  tessaline_board_chip_set("sensor", 0x331C, 0xA5);
  ImxSensorI2cInterface bus(kSensor);
  EXPECT_EQ(bus.Read(0x331C), 0xA5);
  EXPECT_THAT(BusAndPauses(), ElementsAre("i2c-0 " + I2cRead(kSensor, "33 1c", "a5"), "sleep 500"));
}

TEST_F(ImxBus, TriesTenTimesWithAPauseAfterEach) {
  tessaline_board_chip_present("sensor", 0);
  ImxSensorI2cInterface bus(kSensor);
  EXPECT_FALSE(bus.Write(0x3000, 1));
  EXPECT_THAT(BusAndPauses(), SizeIs(20));
  EXPECT_EQ(BusAndPauses().back(), "sleep 500");
  tessaline_board_transcript_clear();
  EXPECT_EQ(bus.Read(0x3000), 0);
  EXPECT_THAT(BusAndPauses(), SizeIs(20));
}

TEST_F(ImxBus, TheTenthTryStillCounts) {
  ImxSensorI2cInterface bus(kSensor);
  tessaline_board_fault("i2c-0", "I2C_RDWR", 0, 9, EIO);
  EXPECT_TRUE(bus.Write(0x300B, 0x12));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x300B), 0x12);
  EXPECT_THAT(BusAndPauses(), SizeIs(20));
  tessaline_board_clear_faults();
  tessaline_board_fault("i2c-0", "I2C_RDWR", 0, 9, EIO);
  EXPECT_EQ(bus.Read(0x300B), 0x12);
}

TEST_F(ImxBus, AnUnopenableBusIsTriedTenTimesToo) {
  ImxSensorI2cInterface bus(kSensor);
  tessaline_board_fault("i2c-0", "open", 0, 0, EIO);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(bus.Write(0x300B, 0x12)); }).size(),
            10 * std::string("I2cDev::Open() Unable to open i2c control file: Input/output error\n")
                     .size());
}

}  // namespace
}  // namespace VeltranoSDK
