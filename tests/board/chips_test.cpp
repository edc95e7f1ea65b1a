// The chips on the virtual board's I2C buses, accessed as any program would.

#include <gmock/gmock.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cstdint>
#include <numeric>
#include <vector>

#include "BoardFixture.h"
#include "support/Waiting.h"

namespace {

using board_test::BoardTest;
using board_test::Descriptor;
using board_test::Outcome;
using tessaline_test::Eventually;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kSensor = 0x36;
constexpr std::uint16_t kSensor252 = 0x10;
constexpr std::uint16_t kAd5175 = 0x2F;
constexpr std::uint16_t kTpl0401 = 0x3E;
constexpr std::uint16_t kDa = 0x60;
constexpr std::uint16_t kEeprom = 0x50;

class ChipTest : public BoardTest {
 protected:
  static long Write(const char* bus, std::uint16_t address, Bytes bytes) {
    i2c_msg message{address, 0, static_cast<std::uint16_t>(bytes.size()), bytes.data()};
    return Transfer(bus, &message, 1);
  }

  // A write message and a read message in one transaction.
  static Bytes WriteRead(const char* bus, std::uint16_t address, Bytes bytes, std::size_t count) {
    Bytes answer(count, 0xEE);
    i2c_msg messages[]{{address, 0, static_cast<std::uint16_t>(bytes.size()), bytes.data()},
                       {address, I2C_M_RD, static_cast<std::uint16_t>(count), answer.data()}};
    EXPECT_EQ(Transfer(bus, messages, 2), 2);
    return answer;
  }

  static Bytes Read(const char* bus, std::uint16_t address, std::size_t count) {
    Bytes answer(count, 0xEE);
    i2c_msg message{address, I2C_M_RD, static_cast<std::uint16_t>(count), answer.data()};
    EXPECT_EQ(Transfer(bus, &message, 1), 1);
    return answer;
  }

  static long Transfer(const char* bus, i2c_msg* messages, unsigned count) {
    const Descriptor file(bus, O_RDWR);
    i2c_rdwr_ioctl_data request{messages, count};
    return Outcome(::ioctl(file.Get(), I2C_RDWR, &request));
  }
};

constexpr const char* kBus0 = "/dev/i2c-0";
constexpr const char* kBus1 = "/dev/i2c-1";

// --- Image sensor

TEST_F(ChipTest, SensorKeepsRegistersAndCountsAddressesUp) {
  EXPECT_EQ(Write(kBus0, kSensor, {0x33, 0x10, 0x11, 0x22, 0x33}), 1);
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x33, 0x10}, 3), ElementsAre(0x11, 0x22, 0x33));
  EXPECT_THAT(Read(kBus0, kSensor, 2), ElementsAre(0x00, 0xB0));  // 0x3313, 0x3314
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3311), 0x22);
}

TEST_F(ChipTest, SensorPowersUpInStandbyWithFullFrameTiming) {
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x30, 0x00}, 1), ElementsAre(1));
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x30, 0x10}, 2), ElementsAre(0x6A, 0x04));
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x30, 0x14}, 2), ElementsAre(238, 0));
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x33, 0x14}, 4), ElementsAre(0xB0, 0x05, 0x40, 0x04));
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x33, 0x00}, 1), ElementsAre(0));
}

TEST_F(ChipTest, SensorIdentifiesItself) {
  const Bytes id = WriteRead(kBus0, kSensor, {0x31, 0x48}, 2);
  EXPECT_EQ((id[1] & 0x7F) << 2 | id[0] >> 6, 273);
  EXPECT_EQ(id[1] >> 7, 1);
}

TEST_F(ChipTest, SensorIdentificationCannotBeWritten) {
  const Bytes before = WriteRead(kBus0, kSensor, {0x31, 0x48}, 2);
  EXPECT_EQ(Write(kBus0, kSensor, {0x31, 0x48, 0x55, 0x55}), 1);
  EXPECT_EQ(WriteRead(kBus0, kSensor, {0x31, 0x48}, 2), before);
}

TEST_F(ChipTest, SensorLatchesItsTemperatureWhenAsked) {
  ASSERT_EQ(tessaline_board_chip_set("sensor", 0x301E, 0x34), 0);
  ASSERT_EQ(tessaline_board_chip_set("sensor", 0x301F, 0x02), 0);
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x1D, 0x01}), 1);
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x30, 0x1E}, 2), ElementsAre(0x34, 0x02));
}

TEST_F(ChipTest, SensorTemperatureReadsZeroBeforeTheFirstLatch) {
  EXPECT_THAT(WriteRead(kBus0, kSensor, {0x30, 0x1E}, 2), ElementsAre(0, 0));
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x1D, 0x01}), 1);
  const Bytes code = WriteRead(kBus0, kSensor, {0x30, 0x1E}, 2);
  EXPECT_GT((code[1] & 3) << 8 | code[0], 0);
}

TEST_F(ChipTest, SensorOfTheOtherAddressIsNotThere) {
  EXPECT_EQ(Write(kBus0, kSensor252, {0x30, 0x00, 0x00}), -ENXIO);
}

TEST_F(ChipTest, TheLargerSensorHasItsOwnAddressTypeAndTiming) {
  Select("K3710");
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x00, 0x00}), -ENXIO);
  const Bytes id = WriteRead(kBus0, kSensor252, {0x31, 0x48}, 2);
  EXPECT_EQ((id[1] & 0x7F) << 2 | id[0] >> 6, 252);
  EXPECT_THAT(WriteRead(kBus0, kSensor252, {0x30, 0x00}, 1), ElementsAre(1));
  EXPECT_THAT(WriteRead(kBus0, kSensor252, {0x30, 0x10}, 2), ElementsAre(0x2E, 0x06));
  EXPECT_THAT(WriteRead(kBus0, kSensor252, {0x30, 0x14}, 2), ElementsAre(0x36, 0x01));
  EXPECT_THAT(WriteRead(kBus0, kSensor252, {0x33, 0x14}, 4), ElementsAre(0x10, 0x08, 0x08, 0x06));
}

TEST_F(ChipTest, AbsentSensorAcknowledgesNothing) {
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x00, 0x00}), -ENXIO);
  ASSERT_EQ(tessaline_board_chip_present("sensor", 1), 0);
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x00, 0x00}), 1);
}

TEST_F(ChipTest, SelectingTheBoardAgainPowersItsChipsUpAgain) {
  EXPECT_EQ(Write(kBus0, kSensor, {0x30, 0x00, 0x00}), 1);
  Select("K3610");
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3000), 1);
}

// --- Potentiometers

TEST_F(ChipTest, Ad5175IgnoresThePositionWhileLocked) {
  const int before = tessaline_board_chip_get("pot", 0);
  EXPECT_EQ(before, 512);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x05, 0xFF}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), before);
}

TEST_F(ChipTest, Ad5175TakesThePositionOnceUnlocked) {
  EXPECT_EQ(Write(kBus1, kAd5175, {0x1C, 0x02}), 1);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x05, 0xFF}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 511);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x1C, 0x00}), 1);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x07, 0xE8}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 511);
}

TEST_F(ChipTest, Ad5175ReadsBackWiperAndControlRegister) {
  EXPECT_EQ(Write(kBus1, kAd5175, {0x1C, 0x02}), 1);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x07, 0xE8}), 1);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x08, 0x00}), 1);
  EXPECT_THAT(Read(kBus1, kAd5175, 2), ElementsAre(0x03, 0xE8));
  EXPECT_EQ(Write(kBus1, kAd5175, {0x20, 0x00}), 1);
  EXPECT_THAT(Read(kBus1, kAd5175, 2), ElementsAre(0x00, 0x02));
}

TEST_F(ChipTest, Ad5175SoftwareResetGoesToMidScaleAndLocks) {
  EXPECT_EQ(Write(kBus1, kAd5175, {0x1C, 0x02}), 1);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x04, 0x00}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 0);
  EXPECT_EQ(Write(kBus1, kAd5175, {0x10, 0x00}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 512);
  EXPECT_EQ(tessaline_board_chip_get("pot", 1), 0);
}

TEST_F(ChipTest, Tpl0401KeepsSevenBits) {
  Select("K3920");
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 64);
  EXPECT_EQ(Write(kBus0, kTpl0401, {0x00, 0xFF}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 0x7F);
  EXPECT_THAT(WriteRead(kBus0, kTpl0401, {0x00}, 1), ElementsAre(0x7F));
}

TEST_F(ChipTest, Tpl0401HasOneRegister) {
  Select("K3920");
  EXPECT_EQ(Write(kBus0, kTpl0401, {0x01, 0x05}), 1);
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 64);
  EXPECT_THAT(WriteRead(kBus0, kTpl0401, {0x01}, 1), ElementsAre(0));
  EXPECT_EQ(tessaline_board_chip_get("pot", 1), -1);
}

// --- DA converter

TEST_F(ChipTest, DaConverterTakesTwelveBits) {
  EXPECT_EQ(Write(kBus1, kDa, {0x02, 0x34}), 1);
  EXPECT_EQ(tessaline_board_chip_get("da", 0), 0x234);
  EXPECT_EQ(tessaline_board_chip_get("da", 1), 0);
  EXPECT_THAT(Read(kBus1, kDa, 2), ElementsAre(0x02, 0x34));
}

TEST_F(ChipTest, DaConverterKeepsPowerDownBitsApart) {
  EXPECT_EQ(Write(kBus1, kDa, {0x3F, 0xFF}), 1);
  EXPECT_EQ(tessaline_board_chip_get("da", 0), 0xFFF);
  EXPECT_EQ(tessaline_board_chip_get("da", 1), 3);
}

TEST_F(ChipTest, DaConverterIgnoresOtherCommands) {
  EXPECT_EQ(Write(kBus1, kDa, {0x42, 0x34}), 1);
  EXPECT_EQ(tessaline_board_chip_get("da", 0), 0);
}

// --- EEPROM

TEST_F(ChipTest, EepromIsErasedAtFirst) {
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x00}, 16), Each(0xFF));
}

TEST_F(ChipTest, EepromWritesWrapWithinTheirPage) {
  Bytes frame{0x18};  // the middle of the page at 0x10
  for (std::uint8_t i = 0; i < 16; ++i) frame.push_back(i);
  EXPECT_EQ(Write(kBus0, kEeprom, frame), 1);
  Pass(10);
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x10}, 16),
              ElementsAre(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7));
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x20}, 8), Each(0xFF));
}

TEST_F(ChipTest, EepromIsDeafDuringItsWriteCycle) {
  // The board's time continues, so on a busy machine the cycle may end between two calls.
  EXPECT_TRUE(Eventually([] {
    if (Write(kBus0, kEeprom, {0x00, 0x42}) != 1) return false;
    Pass(9);
    return Write(kBus0, kEeprom, {0x00}) == -ENXIO && Write(kBus0, kEeprom + 1, {0x00}) == -ENXIO;
  }));
  Pass(10);
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x00}, 1), ElementsAre(0x42));
}

TEST_F(ChipTest, EepromSettingOnlyTheAddressStartsNoWriteCycle) {
  EXPECT_EQ(Write(kBus0, kEeprom, {0x20}), 1);
  EXPECT_EQ(Write(kBus0, kEeprom, {0x20}), 1);
}

TEST_F(ChipTest, EepromGivesUpAWriteWithoutStopCondition) {
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x00, 0x42}, 1), ElementsAre(0xFF));
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x00}, 1), ElementsAre(0xFF));
}

TEST_F(ChipTest, EepromHasTwoHalvesAtTwoAddresses) {
  EXPECT_EQ(Write(kBus0, kEeprom, {0x05, 0x11}), 1);
  Pass(10);
  EXPECT_EQ(Write(kBus0, kEeprom + 1, {0x05, 0x22}), 1);
  Pass(10);
  EXPECT_EQ(tessaline_board_chip_get("eeprom", 0x005), 0x11);
  EXPECT_EQ(tessaline_board_chip_get("eeprom", 0x105), 0x22);
  EXPECT_EQ(tessaline_board_chip_get("eeprom", 0x200), -1);
}

TEST_F(ChipTest, EepromReadsOnFromWhereItStopped) {
  Bytes expected(256);
  std::iota(expected.begin(), expected.end(), 0);
  for (unsigned i = 0; i < 256; ++i) ASSERT_EQ(tessaline_board_chip_set("eeprom", i, i), 0);
  EXPECT_THAT(WriteRead(kBus0, kEeprom, {0x00}, 100),
              ElementsAreArray(expected.begin(), expected.begin() + 100));
  EXPECT_THAT(Read(kBus0, kEeprom, 156), ElementsAreArray(expected.begin() + 100, expected.end()));
}

// --- All of them

TEST_F(ChipTest, UnknownChipsAndAddressesAreRefused) {
  EXPECT_EQ(tessaline_board_chip_get("toaster", 0), -1);
  EXPECT_EQ(tessaline_board_chip_set("toaster", 0, 0), -1);
  EXPECT_EQ(tessaline_board_chip_present("toaster", 0), -1);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x10000), -1);
  EXPECT_EQ(tessaline_board_chip_get("da", 2), -1);
  EXPECT_EQ(tessaline_board_chip_set("pot", 2, 0), -1);
}

}  // namespace
