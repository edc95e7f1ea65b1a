// The drivers, compiled with the example tables of docs/sensor-tables.md.
#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/SensorTable.h"
#include "Devices/sensor/gmax2509/GmaxTest.h"
#include "Devices/sensor/sony/SonySensorTest.h"
#include "sensor_tables/Gmax2509Init.h"
#include "sensor_tables/GsprintGain.h"
#include "sensor_tables/Imx252FixedSettings.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAreArray;

struct SuppliedImx252 : SonySensorTest {
  SuppliedImx252() : SonySensorTest("K3710ch16", kSeries22ch16) {}
};
struct SuppliedGmax2509 : Gmax {};

TEST(SuppliedTables, StandInForTheLibrarysOwn) {
  EXPECT_EQ(imx252::kFixedSettings.size(), 3u);
  EXPECT_EQ(CountPlaceholders(imx252::kFixedSettings), 0u);
  EXPECT_EQ(gmax2509::kInitTable.size(), 98u);
  EXPECT_EQ(CountPlaceholders(gmax2509::kInitTable), 87u);
}

TEST(SuppliedTables, LeaveTheOthersAlone) { EXPECT_EQ(gsprint::kGainRows.size(), 4u); }

TEST_F(SuppliedImx252, IsWhatTheDriverWrites) {
  Printed([] { EXPECT_TRUE(devices().cmos_sensor_->RegisterInitialize(kDriveMode22)); });
  EXPECT_THAT(Accesses(),
              ElementsAreArray({"3000 = 00", "3000 = 01", "3001 = C0", "3005 = 10", "301C = 10",
                                // the table
                                "300B = 01", "300C = 02", "409E = 54",
                                // the mode
                                "3300 = 00", "3010 = 2A", "3011 = 03", "3012 = 00", "3014 = 36",
                                "3015 = 01", "300D = 02",
                                // and on
                                "3000 = 00", "301D = 01"}));
}

// Constants are written unchanged. Computed entries are written with their current value.
TEST_F(SuppliedGmax2509, IsWhatTheDriverWrites) {
  Printed([] {
    sensor().SetGain(2);
    sensor().SetROI(0, 0, 560, 0x123);
    tessaline_board_transcript_clear();
    EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00));
  });
  EXPECT_THAT(Accesses(), ElementsAreArray(Lines{"00 ?", "00 = 00", "D0 ?", "D0 = 40",
                                                 // the table
                                                 "CE = 30", "D2 = A4", "A0 = F0", "A1 = 05",
                                                 "12 = 00", "14 = 00", "15 = 23", "16 = 01",
                                                 "B5 = 42", "C0 = F6", "C1 = F6"} +
                                           Lines(87, "13 = 04") +
                                           // and on
                                           Lines{"D0 ?", "D0 = 00", "00 ?", "00 = 02"}));
}

}  // namespace
}  // namespace VeltranoSDK
