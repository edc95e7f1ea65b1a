// The e2v Flash 4K driver, compiled with tables supplied by an integrator.
#include <algorithm>

#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/e2v_flash4k/E2vSensorTest.h"
#include "sensor_tables/E2vFinalConfiguration.h"
#include "sensor_tables/E2vHdr.h"

namespace VeltranoSDK {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

class SuppliedE2vTables : public E2vSensorTest {
 protected:
  // The accesses to the chip during `call`, without reads of its status.
  template <typename Call>
  Lines Written(Call call) {
    tessaline_board_transcript_clear();
    Printed(call);
    Lines accesses = Accesses();
    std::erase(accesses, "0000 ?");
    return accesses;
  }

  static Lines FinalConfigurationWith(const std::string& value) {
    Lines writes{"page 0"};
    for (unsigned address = 0x0300; address < 0x0300 + 34; ++address) {
      char text[16];
      snprintf(text, sizeof text, "%04X = ", address);
      writes.push_back(text + value);
    }
    return writes + Lines{"page 0", "update registers", "update ROI", "012F = 0001"};
  }
};

TEST_F(SuppliedE2vTables, StandInForTheLibrarysOwn) {
  EXPECT_EQ(CountPlaceholders(e2v::kFinalConfiguration), 0u);
  EXPECT_EQ(CountPlaceholders(e2v::kHdrSquared), 0u);
}

TEST_F(SuppliedE2vTables, RegistersAreLoadedPageByPage) {
  EXPECT_THAT(Written([] { EXPECT_TRUE(sensor().LoadRegisters()); }),
              ElementsAre("page 1", "page 1", "0300 = 1000", "0301 = 1001", "page 0",  //
                          "page 2", "page 2", "0300 = 2000", "page 0"));
}

TEST_F(SuppliedE2vTables, AFailedPageEndsTheLoading) {
  FailWrite(0);
  EXPECT_EQ(Told([] { EXPECT_FALSE(sensor().LoadRegisters()); }),
            "E2vFlash4k::RegisterInitialize Wpage 1 failed!\n");
  FailWrite(3);
  EXPECT_EQ(Told([] { EXPECT_FALSE(sensor().LoadRegisters()); }),
            "E2vFlash4k::BatchWriteRegister Write 769 failed!\n");
  EXPECT_THAT(Accesses(), Not(Contains("page 2")));
  FailWrite(5);
  EXPECT_EQ(Told([] { EXPECT_FALSE(sensor().LoadRegisters()); }),
            "E2vFlash4k::RegisterInitialize Wpage 2 failed!\n");
}

TEST_F(SuppliedE2vTables, ControlMemoriesAreMadeAccessibleFirst) {
  EXPECT_THAT(
      Written([] { EXPECT_TRUE(sensor().LoadControlMemories()); }),
      ElementsAre("0070 = 0000", "page 11", "page 11", "0000 = B000", "0001 = B001", "page 0"));
}

TEST_F(SuppliedE2vTables, TheFinalConfigurationIsTheSensingModes) {
  EXPECT_THAT(Written([] { EXPECT_TRUE(sensor().FinalConfiguration()); }),
              ElementsAreArray(FinalConfigurationWith("0F0F")));
  Printed([] { ASSERT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
  EXPECT_THAT(Written([] { EXPECT_TRUE(sensor().FinalConfiguration()); }),
              ElementsAreArray(FinalConfigurationWith("0505")));
}

TEST_F(SuppliedE2vTables, ASensingModeIsLoadedWithItsOwnValues) {
  Printed([] { ASSERT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
  EXPECT_EQ(Chip(0x0300), 0x0505);
  Printed([] { ASSERT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingFpga)); });
  EXPECT_EQ(Chip(0x0300), 0x0F0F);
}

TEST_F(SuppliedE2vTables, EveryGainIsInItsRange) {
  constexpr std::pair<unsigned, const char*> kRows[]{
      {0, "0300 = 0001"}, {1, "0300 = 0001"}, {2, "0300 = 0002"},
      {3, "0300 = 0002"}, {4, "0300 = 0003"}, {0xFFFFFFFF, "0300 = 0003"},
  };
  for (const auto& [gain, write] : kRows) {
    EXPECT_THAT(Written([gain = gain] { EXPECT_TRUE(sensor().SetGain(gain)); }),
                ElementsAre("page 3", write, "page 0"))
        << gain;
  }
}

TEST_F(SuppliedE2vTables, HdrListsCarryTheFactors) {
  const auto hdr = [](E2vFlash4k::KPosi posi, unsigned short k) {
    return [=] { EXPECT_TRUE(sensor().SetHDRParam(posi, k)); };
  };
  EXPECT_THAT(Written(hdr(E2vFlash4k::kPosiFirst, 10)),
              ElementsAre("page 6", "0310 = 1000", "0311 = 0009", "page 0"));
  EXPECT_THAT(Written(hdr(E2vFlash4k::kPosiSecond, 0)),
              ElementsAre("page 6", "0320 = 1000", "0321 = 0004", "page 0"));
  // 500 x 500 - 500 - 1 = 0x3CE9B
  EXPECT_THAT(
      Written(hdr(E2vFlash4k::kPosiSquared, 501)),
      ElementsAre("page 6", "0330 = 1400", "0331 = 01F3", "0332 = CE9B", "0333 = 0003", "page 0"));
}

TEST_F(SuppliedE2vTables, AnotherSensingModeRestoresGainAndHdr) {
  Printed([] {
    ASSERT_TRUE(sensor().SetGain(3));
    ASSERT_TRUE(sensor().SetHDRParam(E2vFlash4k::kPosiSecond, 20));
  });
  const Lines written =
      Written([] { EXPECT_TRUE(sensor().SetSensingMode(E2vFlash4k::kSensingSensor)); });
  ASSERT_GT(written.size(), 7u);
  EXPECT_THAT(Lines(written.end() - 7, written.end()),
              ElementsAre("page 3", "0300 = 0002", "page 0", "page 6", "0320 = 1000", "0321 = 0013",
                          "page 0"));
}

TEST_F(SuppliedE2vTables, TheTrainingFollowsItsSetUp) {
  EXPECT_THAT(Written([] { EXPECT_TRUE(sensor().LvdsTraining()); }),
              ElementsAre("0122 = 3530", "0123 = 0005", "0127 = 4C53", "0128 = 0001", "page 0",
                          "0340 = 7777", "page 0"));
}

TEST_F(SuppliedE2vTables, TheTestImageIsCheckedWhileThePatternIsOn) {
  EXPECT_THAT(Written([] { EXPECT_TRUE(sensor().TestImage()); }),
              ElementsAre("005F = 0001", "page 0", "0350 = 8888", "page 0", "update registers",
                          "update ROI", "0071 = 000F", "005F = 0000", "0041 = 0001"));
}

TEST_F(SuppliedE2vTables, HalvedReadoutSetsItsBitsAndFullReadoutClearsThem) {
  SetChip(0x0023, 0x0004);
  Printed([] { EXPECT_FALSE(sensor().SetReadoutDriveMode(kDriveMode11)); });
  EXPECT_EQ(Chip(0x0023), 0x0105);
  Printed([] { EXPECT_TRUE(sensor().SetReadoutDriveMode(kDriveMode00)); });
  EXPECT_EQ(Chip(0x0023), 0x0004);
}

}  // namespace
}  // namespace VeltranoSDK
