// Laser power and analogue output: the bytes of every setting.
#include <cerrno>
#include <cmath>

#include "DeviceTest.h"
#include "Devices/AD5175DigiPOT.h"
#include "Devices/DaChip.h"
#include "Devices/DigitalPOTFactory.h"
#include "Devices/TPL0401B.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
  AD5175DigiPOT pot_;
};

TEST_F(Ad5175, IsUnlockedAndMoved) {
  EXPECT_TRUE(pot_.SetPosition(50));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre("write 0x2f: 1c 02", "write 0x2f: 05 ff"));
  EXPECT_EQ(tessaline_board_chip_get("pot", 0), 511);
}

struct Position {
  float percent;
  const char* frame;
};

TEST_F(Ad5175, PositionsInSteps) {
  constexpr Position kRows[]{
      {0, "write 0x2f: 04 00"},        {1, "write 0x2f: 04 0a"},   {97.7f, "write 0x2f: 07 e7"},
      {97.8f, "write 0x2f: 07 e8"},    {100, "write 0x2f: 07 e8"}, {1e6f, "write 0x2f: 07 e8"},
      {INFINITY, "write 0x2f: 07 e8"}, {-5, "write 0x2f: 04 00"},  {NAN, "write 0x2f: 04 00"},
  };
  for (const Position& row : kRows) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(pot_.SetPosition(row.percent));
    EXPECT_THAT(Bus("i2c-1"), ElementsAre("write 0x2f: 1c 02", row.frame)) << row.percent;
  }
}

TEST_F(Ad5175, PowerIsClampedTo1000) {
  EXPECT_TRUE(pot_.SetPower(1000));
  EXPECT_TRUE(pot_.SetPower(1001));
  EXPECT_TRUE(pot_.SetPower(0xFFFF));
  EXPECT_TRUE(pot_.SetPower(3));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre("write 0x2f: 07 e8", "write 0x2f: 07 e8",
                                        "write 0x2f: 07 e8", "write 0x2f: 04 03"));
}

TEST_F(Ad5175, StaysLockedWhenUnlockingFails) {
  tessaline_board_fault("i2c-1", "I2C_RDWR", 0, 1, EIO);
  EXPECT_FALSE(pot_.SetPosition(50));
  EXPECT_EQ(Bus("i2c-1").size(), 1u);
}

TEST_F(Ad5175, FailedMoveIsReported) {
  tessaline_board_fault("i2c-1", "I2C_RDWR", 1, 1, EIO);
  EXPECT_FALSE(pot_.SetPosition(50));
  EXPECT_TRUE(pot_.RemoveRegisterRdWrProtection());
}

TEST_F(Ad5175, UnopenableBusIsReported) {
  tessaline_board_fault("i2c-1", "open", 0, 0, ENOENT);
  EXPECT_EQ(PrintedAsError([&] { EXPECT_FALSE(pot_.SetPosition(50)); }),
            "I2cDev::Open() Unable to open i2c control file: No such file or directory\n");
}

TEST_F(Ad5175, Has1024Steps) { EXPECT_EQ(pot_.GetResolution(), 1024u); }

class Tpl0401 : public LaserPower {
 protected:
  Tpl0401() : LaserPower("K3910", kSeries24) {}
  TPL0401B* pot() { return dynamic_cast<TPL0401B*>(devices().digital_pot_.get()); }
};

TEST_F(Tpl0401, RunsAgainstThePower) {
  if (pot() == nullptr) GTEST_SKIP() << "no series 24 board yet";
  constexpr Position kRows[]{
      {0, "write 0x3e: 00 7f"},   {50, "write 0x3e: 00 40"},  {100, "write 0x3e: 00 00"},
      {150, "write 0x3e: 00 00"}, {-10, "write 0x3e: 00 7f"},
  };
  for (const Position& row : kRows) {
    tessaline_board_transcript_clear();
    EXPECT_TRUE(pot()->SetPosition(row.percent));
    EXPECT_THAT(Bus("i2c-0"), ElementsAre(row.frame)) << row.percent;
  }
  EXPECT_EQ(pot()->GetResolution(), 128u);
}

class Da : public LaserPower {
 protected:
  DaChip da_;
};

TEST_F(Da, WritesTwelveBitsUpperNibbleFirst) {
  EXPECT_TRUE(da_.Write(0x1234));
  EXPECT_TRUE(da_.Write(0xFFF));
  EXPECT_TRUE(da_.Write(0));
  EXPECT_TRUE(da_.Write(-1));
  EXPECT_THAT(Bus("i2c-1"), ElementsAre("write 0x60: 02 34", "write 0x60: 0f ff",
                                        "write 0x60: 00 00", "write 0x60: 0f ff"));
  EXPECT_EQ(tessaline_board_chip_get("da", 0), 0xFFF);
}

TEST_F(Da, FailedWriteIsReported) {
  tessaline_board_chip_present("da", 0);
  EXPECT_FALSE(da_.Write(1));
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
