// What the IMX252 driver programs after power-up, in each mode, and what it prints if a write
// fails.
#include "Devices/sensor/imx252/Imx252Fixture.h"
#include "sensor_tables/Imx252FixedSettings.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAreArray;

TEST(Imx252Table, HasTwoHundredSettingsOfWhichMostWaitForTheMaker) {
  EXPECT_EQ(imx252::kFixedSettings.size(), 200u);
  EXPECT_EQ(CountPlaceholders(imx252::kFixedSettings), 186u);
}

TEST(Imx252Table, PlaceholdersClearARegisterThatIsClearedAnyway) {
  for (const imx252::Setting& setting : imx252::kFixedSettings) {
    if (!setting.placeholder) continue;
    EXPECT_EQ(setting.address, 0x3012);
    EXPECT_EQ(setting.value, 0);
  }
}

Lines Times(std::size_t count, const char* line) { return Lines(count, line); }

const Lines kFixedSettings = Lines{"300B = 01", "300C = 02", "3016 = 02", "301B = 00",
                                   "3023 = 00", "3079 = 08", "3089 = 10", "308A = 02"} +
                             Times(98, "3012 = 00") + Lines{"3D04 = E5", "3D05 = 00"} +
                             Times(64, "3012 = 00") + Lines{"4005 = FF", "400B = 00"} +
                             Times(24, "3012 = 00") + Lines{"409C = 19", "409E = 54"};

const Lines kPrepare{"3000 = 00",
                     "sleep 2000",
                     "sleep 2500",
                     Timing(0),
                     "sleep 200",
                     Timing(4),
                     "sleep 3000",
                     Timing(5),
                     Fpga(fpga::kReg.SENSOR_TIMING, 16),
                     Timing(4),
                     "sleep 200",
                     "3000 = 01",
                     "sleep 2000",
                     "POLARITY = 0x00000004",
                     "3001 = C0"};

const Lines kEightChannels{"3005 = 10", "301C = 10"};

const Lines kGoLive{"3000 = 00", "sleep 1000",   "sleep 2000", "sleep 2500",
                    Timing(0),   "sleep 200",    Timing(4),    "sleep 3000",
                    Timing(5),   "sleep 100000", "301D = 01"};

const Lines kFullFrame{"3300 = 03", "3310 = 08", "3311 = 00", "3312 = 04",
                       "3313 = 00", "3314 = 00", "3315 = 08", "3316 = 00",
                       "3317 = 06", "3010 = 26", "3011 = 06", "3012 = 00"};
const Lines kReducedFrame{"3300 = 00", "3010 = 2A", "3011 = 03", "3012 = 00"};

struct StartRow {
  ReadoutDriveMode mode;
  Lines frame;
  Lines line;
  const char* readout;
  unsigned row_time;
  unsigned width, height;
  unsigned drive_code;
};

const StartRow kStarts[]{
    {kDriveMode00, kFullFrame, {"3014 = 36", "3015 = 01"}, "300D = 00", 309, 2048, 1536, 0},
    {kDriveMode11, kReducedFrame, {"3014 = DA", "3015 = 00"}, "300D = 11", 217, 1032, 772, 3},
    {kDriveMode22, kReducedFrame, {"3014 = 36", "3015 = 01"}, "300D = 02", 309, 2064, 772, 0},
};

Lines Started(const StartRow& row, const Lines& channels, const Lines& line, unsigned row_time) {
  return kPrepare + channels + kFixedSettings + row.frame + line +
         Lines{row.readout, RowTime(row_time), Delay(row.height), DriveCode(row.drive_code)} +
         ImageSize(row.width, row.height) + kGoLive;
}

TEST_F(Imx252, InitialisesInEveryMode) {
  for (const StartRow& row : kStarts) {
    PowerUp();
    bool done = false;
    EXPECT_EQ(Printed([&] { done = sensor().RegisterInitialize(row.mode); }),
              "252 init successful\n");
    EXPECT_TRUE(done);
    EXPECT_THAT(Programming(),
                ElementsAreArray(Started(row, kEightChannels, row.line, row.row_time)));
    EXPECT_EQ(sensor().roi_width(), row.width);
    EXPECT_EQ(sensor().roi_height(), row.height);
    EXPECT_EQ(sensor().roi_x(), 0u);
    EXPECT_EQ(sensor().read_out_drive_mode(), row.mode);
  }
}

TEST_F(Imx252, Over16ChannelsEveryModeHasTheShortestLine) {
  for (const StartRow& row : kStarts) {
    PowerUp();
    sensor().SetCh16Mode(1);
    Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(row.mode)); });
    EXPECT_THAT(Programming(), ElementsAreArray(Started(row, {}, {"3014 = D9", "3015 = 00"}, 216)));
  }
}

TEST_F(Imx252, AnyOtherChannelModeIsNeitherOf8NorOf16) {
  sensor().SetCh16Mode(2);
  Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); });
  EXPECT_THAT(Programming(),
              ElementsAreArray(Started(kStarts[0], {}, {"3014 = 36", "3015 = 01"}, 309)));
}

TEST_F(Imx252, OtherModesAreFoundOutAfterTheFixedSettings) {
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(ReadoutDriveMode{0x33})); }),
            "252 init drive_mode error!\n");
  EXPECT_THAT(Programming(), ElementsAreArray(kPrepare + kEightChannels + kFixedSettings));
  EXPECT_EQ(sensor().read_out_drive_mode(), kDriveMode00);
}

TEST_F(Imx252, EveryFailureOfTheInitialisationNamesItsRegister) {
  FailEveryWrite(
      [&] {
        sensor().SetCh16Mode(1);
        return sensor().RegisterInitialize(kDriveMode00);
      },
      InitError);
}

TEST_F(Imx252, EveryFailureOfAReducedStartNamesItsRegister) {
  // The registers that are written after the fixed settings. Three writes come before those
  // settings.
  constexpr const char* kNames[]{"3300", "3010", "3011", "3012", "3014",
                                 "3015", "300D", "3000", "301D"};
  const auto first = static_cast<unsigned>(3 + kFixedSettings.size());
  for (const ReadoutDriveMode mode : {kDriveMode11, kDriveMode22}) {
    for (unsigned i = 0; i < std::size(kNames); ++i) {
      PowerUp();
      sensor().SetCh16Mode(1);
      FailAccess(first + i);
      EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(mode)); }),
                InitError(kNames[i], 0));
      EXPECT_EQ(Accesses().size(), first + i + kTries);
    }
  }
}

TEST_F(Imx252, FailedChannelRegistersAreToldAndSkipped) {
  const unsigned first = 3;  // 3000, 3000, 3001 come before
  for (const unsigned skipped : {0u, 1u}) {
    PowerUp();
    FailAccess(first + skipped);
    EXPECT_EQ(Printed([&] { EXPECT_TRUE(sensor().RegisterInitialize(kDriveMode00)); }),
              InitError(skipped == 0 ? "3005" : "301C", 0) + "252 init successful\n");
  }
  PowerUp();
  FailAccess(0);
  EXPECT_EQ(Printed([&] { sensor().Set8ChReg(); }), "init error 0x3005\n");
  EXPECT_EQ(Chip(0x301C), 0x10);
}

TEST_F(Imx252, InitialisationOfAnAbsentChipFailsAtTheFirstWrite) {
  ASSERT_EQ(tessaline_board_chip_present("sensor", 0), 0);
  EXPECT_EQ(Printed([&] { EXPECT_FALSE(sensor().RegisterInitialize(kDriveMode00)); }),
            "init error 0x3000\n");
}

}  // namespace
}  // namespace VeltranoSDK
