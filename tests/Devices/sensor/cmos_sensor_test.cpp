// What all image sensors do in the same way, and which series has which sensor.
#include "Devices/DeviceTest.h"
#include "Devices/sensor/CmosSensor.h"
#include "Devices/sensor/CmosSensorFactory.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;

// A driver that rejects every call and records it.
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

TEST(CmosSensor, SettingsAreTraced) {
  const tessaline_test::LoggedLines logged(TESSALINE_LOG_TRACE);
  log_set_level(TESSALINE_LOG_TRACE);
  Refusing sensor;
  sensor.SetROI(0, 0, 1, 1);
  sensor.SetReadoutDriveMode(kDriveMode00);
  sensor.SetReadoutDriveDirection(kNormal);
  EXPECT_THAT(logged.Take(), ElementsAre("TRACE Devices/CmosSensor.cpp: SetROI",
                                         "TRACE Devices/CmosSensor.cpp: SetReadoutDriveMode",
                                         "TRACE Devices/CmosSensor.cpp: SetReadoutDriveDirection"));
}

class Sony : public DeviceTest {};

TEST_F(Sony, WhatBothSensorsDoAlikeIsTraced) {
  const tessaline_test::LoggedLines logged(TESSALINE_LOG_TRACE);
  log_set_level(TESSALINE_LOG_TRACE);
  CmosSensor& sensor = *devices().cmos_sensor_;
  Printed([&] {
    sensor.SetGain(1);
    sensor.GetSensorTemp();
    sensor.GetSensorVer(0);
    sensor.SetReadoutDriveDirection(kNormal);
  });
  Lines lines = logged.Take();
  std::erase_if(lines, [](const std::string& line) {
    return line.find("Devices/SonySensor.cpp") == std::string::npos;
  });
  EXPECT_THAT(lines, ElementsAre("TRACE Devices/SonySensor.cpp: SetGain",
                                 "TRACE Devices/SonySensor.cpp: GetSensorTemp",
                                 "TRACE Devices/SonySensor.cpp: GetSensorVer",
                                 "TRACE Devices/SonySensor.cpp: SetReadoutDriveDirectionImpl"));
}

// The arguments of the exported functions, on the sensor that supports the most of them.
class E2vThroughExports : public DeviceTest {
 protected:
  E2vThroughExports() : DeviceTest("K4010", kSeries25) {}

  void SetUp() override {
    DeviceTest::SetUp();
    log_set_quiet(true);  // there is no image device to follow the change
  }

  // Returns the number of sensor steps for 100 microseconds.
  int StepsOf100Microseconds() {
    Printed([] { EXPECT_EQ(SetExposureTime(1, 100), 0); });
    return tessaline_board_chip_get("sensor", 0x0097);
  }
};

TEST_F(E2vThroughExports, TheExposureStepFollowsPositionAndFactor) {
  Printed([] { EXPECT_EQ(SetSensingMode(1), 0); });
  EXPECT_EQ(StepsOf100Microseconds(), 584 - 1);  // 99.286 us in steps of 0.17
  EXPECT_EQ(SetHDRParam(1, 20), 0);
  EXPECT_EQ(StepsOf100Microseconds(), 292 - 1);  // 0.34
  EXPECT_EQ(SetHDRParam(2, 20), 0);
  EXPECT_EQ(StepsOf100Microseconds(), 14 - 1);  // 6.8
  EXPECT_EQ(SetHDRParam(0, 1), 0);
  EXPECT_EQ(StepsOf100Microseconds(), 1168 - 1) << "a factor below 5 is 5";
}

TEST_F(E2vThroughExports, HalvedReadoutFailsAndARegionOfValidSizeWorks) {
  EXPECT_THAT(Printed([] { EXPECT_EQ(SetDriveMode(0x11), -1); }),
              ::testing::EndsWith("E2vFlash4k::SetReadoutDriveModeImpl SetROI failed!\n"));
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x0031) & 1, 1) << "halved already";
  EXPECT_EQ(GetDriveMode(), 0x11u);
  EXPECT_EQ(GetImageWidth(), 2048u);
  EXPECT_EQ(GetImageHeight(), 540u);
  Printed([] { EXPECT_EQ(SetROI1(0, 0, 2048, 536), 0); });
  EXPECT_EQ(GetImageHeight(), 536u);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), 536u);
}

// The whole image does not fit behind an offset. The offset is kept.
TEST_F(E2vThroughExports, EveryPixelNeedsARegionWithoutOffset) {
  Printed([] {
    EXPECT_EQ(SetROI1(64, 8, 128, 16), 0);
    EXPECT_EQ(SetDriveMode(0), -1);
    EXPECT_EQ(SetROI1(0, 0, 4096, 1080), 0);
    EXPECT_EQ(SetDriveMode(0), 0);
  });
}

class SensorFactory : public DeviceTest {};

TEST_F(SensorFactory, EveryFamilyHasItsSensor) {
  const tessaline_test::LoggedErrors errors;  // a sensor of another board does not find it
  struct Row {
    int series;
    CmosSensorModel model;
  };
  constexpr Row kRows[]{{0, kIMX273},   {1, kIMX252},         {4, kGMAX2509},
                        {5, kGMAX2509}, {6, kGSPRINT6502BSI}, {8, kE2vFlash4k}};
  for (const Row& row : kRows) {
    const auto sensor =
        CmosSensorFactory::CreateCmosSensorBySeries(static_cast<SeriesNumber>(row.series));
    ASSERT_NE(sensor, nullptr) << row.series;
    EXPECT_EQ(sensor->model(), row.model) << row.series;
  }
}

TEST_F(SensorFactory, VariantsAndUnknownSeriesHaveNone) {
  for (const int series : {-1, 2, 3, 7, 9, 10, 1000}) {
    EXPECT_EQ(CmosSensorFactory::CreateCmosSensorBySeries(static_cast<SeriesNumber>(series)),
              nullptr)
        << series;
  }
}

TEST_F(SensorFactory, TracesTheSeries) {
  log_set_level(TESSALINE_LOG_TRACE);
  EXPECT_THAT(
      PrintedAsError(
          [] { CmosSensorFactory::CreateCmosSensorBySeries(static_cast<SeriesNumber>(9)); }),
      ::testing::MatchesRegex("[0-9:]+ TRACE Devices/CmosSensorFactory.cpp:[0-9]+:  - - - - 9\n"));
}

}  // namespace
}  // namespace VeltranoSDK
