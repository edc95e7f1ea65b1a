// What every image sensor does alike, and which series carries which.
#include "DeviceTest.h"
#include "Devices/CmosSensor.h"
#include "Devices/CmosSensorFactory.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;

// A driver that refuses everything and tells what it was asked.
class Refusing : public CmosSensor {
 public:
  Refusing() : CmosSensor(kE2vFlash4k, {1457, 1089}) {}

  bool RegisterInitialize(ReadoutDriveMode) override { return false; }
  bool SetGain(unsigned int) override { return false; }
  unsigned int GetSensorTemp() override { return 0; }
  unsigned int GetSensorVer(unsigned int) override { return 0; }
  unsigned int GetCameraDelay() override { return 0; }
  float GetExposureTimeUnit() override { return 1; }

  Lines asked;

 protected:
  bool SetROIImpl(unsigned int x, unsigned int y, unsigned int width,
                  unsigned int height) override {
    std::ostringstream text;
    text << "ROI " << x << ' ' << y << ' ' << width << ' ' << height << " recorded " << roi_width()
         << ' ' << roi_height();
    asked.push_back(text.str());
    return false;
  }
  bool SetReadoutDriveModeImpl(ReadoutDriveMode mode) override {
    std::ostringstream text;
    text << "mode " << mode << " recorded " << read_out_drive_mode() << ' ' << roi_width() << ' '
         << roi_height();
    asked.push_back(text.str());
    return false;
  }
  bool SetReadoutDriveDirectionImpl(ReadoutDriveDirection direction) override {
    asked.push_back("direction " + std::to_string(direction) + " recorded " +
                    std::to_string(read_out_drive_direction()));
    return false;
  }
};

TEST(CmosSensor, StartsWithTheFullFrame) {
  Refusing sensor;
  EXPECT_EQ(sensor.model(), kE2vFlash4k);
  EXPECT_EQ(sensor.resolution(), std::pair(1457u, 1089u));
  EXPECT_EQ(sensor.roi_x(), 0u);
  EXPECT_EQ(sensor.roi_y(), 0u);
  EXPECT_EQ(sensor.roi_width(), 1457u);
  EXPECT_EQ(sensor.roi_height(), 1089u);
  EXPECT_EQ(sensor.read_out_drive_mode(), kDriveMode00);
  EXPECT_EQ(sensor.read_out_drive_direction(), kNormal);
}

TEST(CmosSensor, StripBufferAndTimingDefaults) {
  Refusing sensor;
  EXPECT_EQ(sensor.TransferMaxFrameValue(), 0x0136260Du);
  EXPECT_EQ(sensor.GetStripBufferSize(), 655360u);
  EXPECT_EQ(sensor.GetStripWidth(), 1024u);
  EXPECT_EQ(sensor.GetStripHeight(), 640u);
}

TEST(CmosSensor, RecordsTheRegionBeforeTheDriverRefusesIt) {
  Refusing sensor;
  EXPECT_FALSE(sensor.SetROI(1, 2, 30, 40));
  EXPECT_THAT(sensor.asked, ElementsAre("ROI 1 2 30 40 recorded 30 40"));
  EXPECT_EQ(sensor.roi_x(), 1u);
  EXPECT_EQ(sensor.roi_y(), 2u);
}

TEST(CmosSensor, ModesResetTheRegionsSizeOnly) {
  Refusing sensor;
  sensor.SetROI(5, 6, 30, 40);
  sensor.asked.clear();
  EXPECT_FALSE(sensor.SetReadoutDriveMode(kDriveMode22));
  EXPECT_FALSE(sensor.SetReadoutDriveMode(kDriveMode11));
  EXPECT_FALSE(sensor.SetReadoutDriveMode(ReadoutDriveMode{0x99}));
  EXPECT_FALSE(sensor.SetReadoutDriveMode(kDriveMode00));
  EXPECT_THAT(sensor.asked,
              ElementsAre("mode 34 recorded 34 30 40", "mode 17 recorded 17 728 544",
                          "mode 153 recorded 153 728 544", "mode 0 recorded 0 1457 1089"));
  EXPECT_EQ(sensor.roi_x(), 5u);
  EXPECT_EQ(sensor.roi_y(), 6u);
}

TEST(CmosSensor, RecordsTheDirectionBeforeTheDriverRefusesIt) {
  Refusing sensor;
  EXPECT_FALSE(sensor.SetReadoutDriveDirection(kBothFlip));
  EXPECT_THAT(sensor.asked, ElementsAre("direction 3 recorded 3"));
}

class SensorFactory : public DeviceTest {};

TEST_F(SensorFactory, SeriesZeroHasTheImx273) {
  const auto sensor = CmosSensorFactory::CreateCmosSensorBySeries(kSeries21);
  ASSERT_NE(sensor, nullptr);
  EXPECT_EQ(sensor->model(), kIMX273);
}

TEST_F(SensorFactory, VariantsAndUnknownSeriesHaveNone) {
  for (const int series : {-1, 2, 3, 7, 9, 10, 1000}) {
    EXPECT_EQ(CmosSensorFactory::CreateCmosSensorBySeries(static_cast<SeriesNumber>(series)),
              nullptr)
        << series;
  }
}

TEST_F(SensorFactory, TracesTheSeries) {
  log_set_level(LOG_TRACE);
  EXPECT_THAT(
      PrintedAsError(
          [] { CmosSensorFactory::CreateCmosSensorBySeries(static_cast<SeriesNumber>(9)); }),
      ::testing::MatchesRegex("[0-9:]+ TRACE Devices/CmosSensorFactory.cpp:[0-9]+:  - - - - 9\n"));
}

}  // namespace
}  // namespace VeltranoSDK
