// The initialisation table of the GMAX2509 on a K3820: the values that it computes, and what it
// writes for entries that have not been supplied.
#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/gmax2509/GmaxTest.h"
#include "sensor_tables/Gmax2509Init.h"

namespace VeltranoSDK {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsSupersetOf;

TEST(Gmax2509Table, HasNinetyEightEntriesOfWhichNinetyWaitForTheMaker) {
  EXPECT_EQ(gmax2509::kInitTable.size(), 98u);
  EXPECT_EQ(CountPlaceholders(gmax2509::kInitTable), 90u);
}

// Two entries take the configuration. Their registers are not known, so it is written to read-only
// registers.
TEST(Gmax2509Table, PlaceholdersRewriteTheFirstRowOrCarryTheConfiguration) {
  std::vector<unsigned> configuration;
  for (const gmax2509::InitEntry& entry : gmax2509::kInitTable) {
    if (!entry.placeholder) continue;
    if (entry.value.computed == gmax2509::Computed::kConfiguration) {
      configuration.push_back(entry.address);
      continue;
    }
    EXPECT_EQ(entry.address, 0x13);
    EXPECT_EQ(entry.value.constant, 4);
    EXPECT_EQ(entry.value.computed, gmax2509::Computed::kNo);
  }
  EXPECT_THAT(configuration, ElementsAre(0xC0, 0xC1));
}

TEST_F(Gmax, TheConfigurationLeavesTheTemperatureAsItIs) {
  SetChip(0xC0, 0xB5);
  SetChip(0xC1, 0x9D);
  Printed([&] { sensor().RegisterInitialize(kDriveMode00); });
  EXPECT_THAT(Accesses(), IsSupersetOf({"C0 = F6", "C1 = F6"}));
  EXPECT_EQ(sensor().GetSensorTemp(), 0x9DB5u);
}

TEST_F(Gmax, TheTableFollowsTheRecordedHeight) {
  Printed([&] {
    sensor().SetROI(28, 0, 560, 0x123);
    tessaline_board_transcript_clear();
    sensor().RegisterInitialize(kDriveMode00);
  });
  EXPECT_THAT(Accesses(), Contains("15 = 23"));
  EXPECT_THAT(Accesses(), Contains("16 = 01"));
}

TEST_F(Gmax, TheInitialisationTableTakesTheGainAsItWasAsked) {
  Printed([&] {
    sensor().SetGain(9);
    sensor().ResetAndInitialize();
  });
  // The first comes from the table, the second from setting the gain again.
  Lines gains;
  for (const std::string& access : Accesses()) {
    if (access.starts_with("B5 = ")) gains.push_back(access);
  }
  EXPECT_THAT(gains, ElementsAre("B5 = 45", "B5 = 49", "B5 = 45"));
}

}  // namespace
}  // namespace VeltranoSDK
