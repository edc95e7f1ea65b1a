// Laser power and analogue output: the bytes of every setting.
#include <cerrno>
#include <cmath>

#include "Devices/DeviceTest.h"
#include "Devices/peripheral/AD5175DigiPOT.h"
#include "Devices/peripheral/DaChip.h"
#include "Devices/peripheral/DigitalPOTFactory.h"
#include "Devices/peripheral/TPL0401B.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned kAd5175 = 0x2F;
constexpr unsigned kTpl0401 = 0x3E;
constexpr unsigned kDa = 0x60;

const std::string kUnlock = I2cWrite(kAd5175, "1c 02");

class LaserPower : public DeviceTest {
 protected:
  using DeviceTest::DeviceTest;

  static Lines Bus(const char* name) {
    Lines lines;
    for (const std::string& event : EventsOf(name)) {
      if (!event.starts_with("I2C_RETRIES")) lines.push_back(event);
    }
    return lines;
  }
};

class Ad5175 : public LaserPower {
 protected:
  static AD5175DigiPOT& pot() { return dynamic_cast<AD5175DigiPOT&>(*devices().digital_pot_); }
};

TEST_F(Ad5175, IsUnlockedAndMoved) {
  EXPECT_TRUE(pot().SetPosition(50));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre(kUnlock, I2cWrite(kAd5175, "05 ff")));
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 511);
}

struct Position {
  float percent;
  const char* bytes;
};

TEST_F(Ad5175, PositionsInSteps) {
  constexpr Position kRows[]{
      {0, "04 00"},
      {1, "04 0a"},
      {97.7f, "07 e7"},
      {97.8f, "07 e8"},
      {100, "07 e8"},
      {1e6f, "07 e8"},
      {INFINITY, "07 e8"},
      {-5, "04 00"},
      {NAN, "04 00"},
      // The product with the highest step is a float. As a double it would be below 733.
      {71.652f, "06 dd"},
  };
  for (const Position& row : kRows) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(pot().SetPosition(row.percent));
    EXPECT_THAT(Bus("i2c-1"), ElementsAre(kUnlock, I2cWrite(kAd5175, row.bytes))) << row.percent;
  }
}

TEST_F(Ad5175, PowerIsClampedTo1000) {
  EXPECT_TRUE(pot().SetPower(1000));
  EXPECT_TRUE(pot().SetPower(1001));
  EXPECT_TRUE(pot().SetPower(0xFFFF));
  EXPECT_TRUE(pot().SetPower(3));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre(I2cWrite(kAd5175, "07 e8"), I2cWrite(kAd5175, "07 e8"),
                                        I2cWrite(kAd5175, "07 e8"), I2cWrite(kAd5175, "04 03")));
}

TEST_F(Ad5175, StaysLockedWhenUnlockingFails) {
  tessaline_board_fault("i2c-1", "I2C_RDWR", 0, 1, EIO);
  EXPECT_FALSE(pot().SetPosition(50));
  EXPECT_EQ(Bus("i2c-1").size(), 1u);
}

TEST_F(Ad5175, FailedMoveIsReported) {
  tessaline_board_fault("i2c-1", "I2C_RDWR", 1, 1, EIO);
  EXPECT_FALSE(pot().SetPosition(50));
  EXPECT_TRUE(pot().RemoveRegisterRdWrProtection());
}

TEST_F(Ad5175, UnopenableBusIsReported) {
  tessaline_board_fault("i2c-1", "open", 0, 0, ENOENT);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(pot().SetPosition(50)); }),
            "I2cDev::Open() Unable to open i2c control file: No such file or directory\n");
}

TEST_F(Ad5175, Has1024Steps) { EXPECT_EQ(pot().GetResolution(), 1024u); }

class Tpl0401 : public LaserPower {
 protected:
  Tpl0401() : LaserPower("K3910", kSeries24) {}
  static TPL0401B& pot() { return dynamic_cast<TPL0401B&>(*devices().digital_pot_); }
};

TEST_F(Tpl0401, RunsAgainstThePower) {
  constexpr Position kRows[]{
      {0, "00 7f"},
      {50, "00 40"},
      {100, "00 00"},
      {150, "00 00"},
      {-10, "00 7f"},
      // This is step 65540. Only its low 16 bits count.
      {51607, "00 7b"},
  };
  for (const Position& row : kRows) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(pot().SetPosition(row.percent));
    EXPECT_THAT(Bus("i2c-0"), ElementsAre(I2cWrite(kTpl0401, row.bytes))) << row.percent;
  }
  EXPECT_EQ(pot().GetResolution(), 128u);
}

class Da : public LaserPower {
 protected:
  static DaChip& da() { return *devices().da_chip_; }
};

TEST_F(Da, WritesTwelveBitsUpperNibbleFirst) {
  EXPECT_TRUE(da().Write(0x1234));
  EXPECT_TRUE(da().Write(0xFFF));
  EXPECT_TRUE(da().Write(0));
  EXPECT_TRUE(da().Write(-1));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre(I2cWrite(kDa, "02 34"), I2cWrite(kDa, "0f ff"),
                                        I2cWrite(kDa, "00 00"), I2cWrite(kDa, "0f ff")));
  EXPECT_EQ(tessaline_board_chip_get("da", 0), 0xFFF);
}

TEST_F(Da, FailedWriteIsReported) {
  tessaline_board_chip_present("da", 0);
  EXPECT_FALSE(da().Write(1));
}

TEST_F(LaserPower, ChipBySeries) {
  for (int series = -1; series <= 10; ++series) {
    const auto pot = DigitalPOTFactory::CreateDigitalPOTBySeries(static_cast<SeriesNumber>(series));
    ASSERT_NE(pot, nullptr);
    EXPECT_EQ(pot->GetResolution(), series == 6 || series == 8 ? 128u : 1024u) << series;
  }
}

}  // namespace
}  // namespace VeltranoSDK
