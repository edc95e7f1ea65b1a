// The GSPRINT6502BSI driver, compiled with tables supplied by an integrator.
#include <cstdio>

#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/gsprint6502bsi/GsprintTest.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/GsprintRecommended.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class SuppliedGsprintTables : public GsprintTest {
 protected:
  // The writes of a gain setting when all other bits of the registers are set.
  static Lines Written(unsigned gain) {
    for (const unsigned address : {0x00A0u, 0x00A2u, 0x200Cu}) SetChip(address, 0xFF);
    tessaline_board_transcript_clear();
    EXPECT_TRUE(sensor().SetGain(gain));
    Lines accesses = Accesses();
    std::erase_if(accesses, [](const std::string& access) { return access.ends_with('?'); });
    return accesses;
  }
};

TEST_F(SuppliedGsprintTables, StandInForTheLibrarysOwn) {
  EXPECT_EQ(CountPlaceholders(gsprint::kRecommendedSettings), 0u);
  EXPECT_EQ(CountPlaceholders(gsprint::kGainRows), 0u);
}

TEST_F(SuppliedGsprintTables, SettingsAreWrittenInTheirOrder) {
  Lines expected;
  for (unsigned i = 0; i < 496; ++i) {
    char text[16];
    snprintf(text, sizeof text, "%04X = %02X", 0x7000 + i, i * 7 & 0xFF);
    expected.emplace_back(text);
  }
  EXPECT_TRUE(sensor().RecommandedRegisterSetting());
  EXPECT_THAT(Programming(), ElementsAreArray(expected));
}

TEST_F(SuppliedGsprintTables, ALevelIsARowOfWhichTheGainsBitsAreWritten) {
  const Lines first{"00A0 = F1", "00A2 = F1", "040B = 31", "080B = 41", "200C = D1", "2001 = 61"};
  const Lines second{"00A0 = F2", "00A2 = F2", "040B = 32", "080B = 42", "200C = D2", "2001 = 62"};
  const Lines third{"00A0 = F3", "00A2 = F3", "040B = 33", "080B = 43", "200C = D3", "2001 = 63"};
  const Lines fourth{"00A0 = F4", "00A2 = F4", "040B = F4", "080B = F4", "200C = F4", "2001 = F4"};
  EXPECT_EQ(Written(0), first);
  EXPECT_EQ(Written(1), first);
  EXPECT_EQ(Written(2), second);
  EXPECT_EQ(Written(3), third);
  EXPECT_EQ(Written(4), fourth);
  EXPECT_EQ(Written(7), fourth);
}

// Bits of a row that do not belong to the gain are not set.
TEST_F(SuppliedGsprintTables, ForeignBitsOfARowAreLeftOut) {
  EXPECT_TRUE(sensor().SetGain(4));
  EXPECT_THAT(Accesses(), ElementsAre("00A0 ?", "00A0 = 04", "00A2 ?", "00A2 = 04", "040B = F4",
                                      "080B = F4", "200C ?", "200C = 34", "2001 = F4"));
}

TEST_F(SuppliedGsprintTables, AResetRestoresTheLevelInEffect) {
  ASSERT_TRUE(sensor().SetGain(9));
  tessaline_board_transcript_clear();
  Printed([] { EXPECT_TRUE(sensor().ResetAndInitialize()); });
  EXPECT_EQ(Accesses().back(), "2001 = F4");
}

TEST_F(SuppliedGsprintTables, AResetWithoutAGainSetsTheFirstLevel) {
  Printed([] { EXPECT_TRUE(sensor().ResetAndInitialize()); });
  EXPECT_EQ(Accesses().back(), "2001 = 61");
}

}  // namespace
}  // namespace VeltranoSDK
