// Functions that do more than hand on a number.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>

#include "api/StartedBoard.h"

namespace {

using tessaline_test::Eventually;
using tessaline_test::Read;
using tessaline_test::Slept;
using tessaline_test::StartedBoard;
using tessaline_test::Wrote;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace fpga = VeltranoSDK::fpga;

class Catalogue : public StartedBoard {};

// --- Acquisition -------------------------------------------------------------------------

TEST_F(Catalogue, StopAfterAStartWaitsASecondAndReadsTheTimer) {
  EXPECT_EQ(SetGlobalControl(1), 0);
  EXPECT_EQ(GetGlobalControl(), 1u);
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetGlobalControl(0), 0);
  const auto steps = Steps();
  ASSERT_EQ(steps.size(), 5u);
  EXPECT_EQ(steps[0], Read(fpga::TRIGGER_CTRL, 0x43));
  EXPECT_EQ(steps[1], Wrote(fpga::TRIGGER_CTRL, 0x03));
  EXPECT_EQ(steps[2], Slept(1'000'000));
  EXPECT_THAT(steps[3], HasSubstr("read IMAGE_BLOCK_1 TIMER_COUNTER_L"));
  EXPECT_THAT(steps[4], HasSubstr("read IMAGE_BLOCK_1 TIMER_COUNTER_H"));
}

TEST_F(Catalogue, StopWithoutAStartDoesNotWait) {
  EXPECT_EQ(SetGlobalControl(0), 0);
  EXPECT_THAT(Steps(), Not(Contains(Slept(1'000'000))));
  SetGlobalControl(1);
  SetGlobalControl(0);
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetGlobalControl(0), 0);
  EXPECT_THAT(Steps(), Not(Contains(Slept(1'000'000))));
}

TEST_F(Catalogue, GlobalControlOfAnotherValueIsOnlyHandedOn) {
  EXPECT_EQ(SetGlobalControl(2), 0);
  EXPECT_THAT(Accesses(), ElementsAre(Read(fpga::TRIGGER_CTRL, 3), Wrote(fpga::TRIGGER_CTRL, 3)));
}

std::atomic<unsigned> images = 0;
void OnImage(unsigned int, unsigned int, void*) { ++images; }

// The late image is older than the stop; a master takes it all the same.
TEST_F(Catalogue, AMasterDeliversImagesFromBeforeTheStop) {
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
  EXPECT_EQ(SetMasterState(2), 0);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::MASTER_CTRL, 0)));
  tessaline_board_frame_fault(0, TESSALINE_BOARD_FRAME_LATE, 0, 1);
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  SetGlobalControl(0);
  EXPECT_TRUE(Eventually([] { return images == 1; }));
}

TEST_F(Catalogue, MasterStateKeepsTheIdAndClearsTheRest) {
  Set(fpga::MASTER_CTRL, 0xFFFFFFEA);
  EXPECT_EQ(SetMasterState(1), 0);
  EXPECT_EQ(Get(fpga::MASTER_CTRL), 0x1Au);
}

// --- Collect mode, strips ----------------------------------------------------------------

TEST_F(Catalogue, CollectModeIsRemembered) {
  EXPECT_EQ(SetCollectMode(0), 0);
  EXPECT_EQ(GetCollectMode(), 0u);
  EXPECT_EQ(Get(fpga::COLLECT_MODE), 0u);
  EXPECT_EQ(Get(fpga::EXPOSURE_NUM), 9u);
  EXPECT_EQ(SetCollectMode(1), 0);
  EXPECT_EQ(GetCollectMode(), 1u);
  EXPECT_EQ(Get(fpga::EXPOSURE_NUM), 6000u << 3 | 1);
}

TEST_F(Catalogue, AnUnknownCollectModeIsRefused) {
  EXPECT_EQ(SetCollectMode(2), -1);
  EXPECT_EQ(Printed(), "SetCollectMode error mode error\n");
  EXPECT_THAT(Accesses(), IsEmpty());
  EXPECT_EQ(GetCollectMode(), 1u);
}

TEST_F(Catalogue, FlagsGoToTheFpgaAndTheContinuousOnePrevails) {
  SetBrFlag(3);
  SetContinuousFlag(1);
  SetBrFlag(0);
  SetContinuousFlag(0);
  EXPECT_THAT(Writes(),
              ElementsAre(Wrote(fpga::BR_CONT_MODE_A, 1), Wrote(fpga::BR_CONT_MODE_B, 1),
                          Wrote(fpga::BR_CONT_MODE_A, 2), Wrote(fpga::BR_CONT_MODE_B, 2),
                          Wrote(fpga::BR_CONT_MODE_A, 2), Wrote(fpga::BR_CONT_MODE_B, 2),
                          Wrote(fpga::BR_CONT_MODE_A, 0), Wrote(fpga::BR_CONT_MODE_B, 0)));
}

TEST_F(Catalogue, CoefficientsAreCutToTheirRegistersAndHandedBack) {
  std::array<int32_t, 21> values{};
  values[0] = -1;
  values[1] = 5;
  values[19] = 0x40000;
  values[20] = -2;
  EXPECT_EQ(SetStripRebuildValue(values.data()), 0);
  EXPECT_EQ(values[0], 0x7FFFFF);
  EXPECT_EQ(values[1], 5);
  EXPECT_EQ(values[19], 0);
  EXPECT_EQ(values[20], 0x3FFFE);
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < values.size(); ++i) {
    expected.push_back(Wrote(fpga::StripRebuild(i), static_cast<std::uint32_t>(values[i])));
  }
  EXPECT_THAT(Writes(), ElementsAreArray(expected));
  EXPECT_THAT(Printed(), HasSubstr("SetStripRebuildValue 8388607 5 0 0 "));
}

TEST_F(Catalogue, ABufferNobodyTookCannotBeReturned) {
  EXPECT_EQ(QV4l2Buf(1000), -1);
  EXPECT_THAT(Errors(), Not(IsEmpty()));
}

// --- Sensor ------------------------------------------------------------------------------

TEST_F(Catalogue, ExposuresCountFromOneAndSlotsFromZero) {
  EXPECT_EQ(SetExposureTime(1, 1000), 0);
  EXPECT_EQ(SetExposureTime(5, 1000), 0);
  const auto writes = Writes();
  ASSERT_EQ(writes.size(), 2u);
  EXPECT_THAT(writes[0], HasSubstr("IMAGE_BLOCK_0 EXP_TIME_1 = "));
  EXPECT_THAT(writes[1], HasSubstr("IMAGE_BLOCK_0 EXP_TIME_5 = "));
  EXPECT_GT(Get(fpga::EXP_TIME_1), 0u);
}

TEST_F(Catalogue, ThereAreFiveExposures) {
  EXPECT_EQ(SetExposureTime(0, 1000), -1);
  EXPECT_EQ(SetExposureTime(6, 1000), -1);
  EXPECT_THAT(Writes(), IsEmpty());
  EXPECT_EQ(Errors().size(), 2u);
}

TEST_F(Catalogue, GainHasItsOwnResults) {
  EXPECT_EQ(SetCmosGain(2), 1);
  tessaline_board_chip_present("sensor", 0);
  EXPECT_EQ(SetCmosGain(2), 0);
}

TEST_F(Catalogue, SensorTemperatureTellsOnlyWhetherThereIsOne) { EXPECT_EQ(GetSensorTemp(), 0); }

TEST_F(Catalogue, RegionAndModeAreRecorded) {
  EXPECT_EQ(SetROI1(0, 0, 1456, 544), 0);
  EXPECT_EQ(GetImageWidth(), 1456u);
  EXPECT_EQ(GetImageHeight(), 544u);
  EXPECT_EQ(SetDriveMode(0x11), 0);
  EXPECT_EQ(GetDriveMode(), 0x11u);
  EXPECT_EQ(GetImageWidth(), 728u);
  EXPECT_EQ(GetImageHeight(), 544u);
  EXPECT_EQ(SetDriveMode(0x33), -1);
  EXPECT_EQ(GetDriveMode(), 0x33u);
  EXPECT_EQ(SetReverseMode(1), 0);
}

TEST_F(Catalogue, ModesOfOtherSensorsHaveNoEffectHere) {
  EXPECT_EQ(SetSensingMode(1), 0);
  EXPECT_EQ(SetHDRParam(1, 2), 0);
  SetHDRParam24(0.5, 0.25, 0.1);
  SetFpgaContinuous(1);
  EXPECT_THAT(Events(), IsEmpty());
}

// --- Peripherals -------------------------------------------------------------------------

TEST_F(Catalogue, LaserOpensBothLinesAndWaitsForTheLight) {
  EXPECT_EQ(OpenLaser(), 0);
  EXPECT_THAT(Events(), ElementsAre("gpio write export 907", "gpio write gpio907/direction out",
                                    "gpio write gpio907/value 1", "gpio write export 934",
                                    "gpio write gpio934/direction out",
                                    "gpio write gpio934/value 1", "sleep 50000"));
  EXPECT_EQ(tessaline_board_gpio_level(907), 1);
  EXPECT_EQ(tessaline_board_gpio_level(934), 1);
  EXPECT_EQ(CloseLaser(), 0);
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
  EXPECT_EQ(tessaline_board_gpio_level(934), 0);
}

TEST_F(Catalogue, ALaserThatCannotBeSwitchedIsAFailure) {
  tessaline_board_fault("gpio", "open", 0, 0, EACCES);
  EXPECT_EQ(OpenLaser(), -1);
  EXPECT_EQ(Printed(), "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY).\n");
  EXPECT_EQ(CloseLaser(), -1);
  EXPECT_EQ(LedControl(1), -1);
}

TEST_F(Catalogue, StatusLightMixesItsColours) {
  EXPECT_EQ(LedControl(5), 0);
  EXPECT_EQ(tessaline_board_gpio_level(961), 1);
  EXPECT_EQ(tessaline_board_gpio_level(962), 0);
  EXPECT_EQ(tessaline_board_gpio_level(963), 1);
}

TEST_F(Catalogue, LaserPowerMovesThePotentiometer) {
  EXPECT_EQ(SetLaserPower(50), 0);
  EXPECT_THAT(Events(), ElementsAre("i2c-1 I2C_RETRIES 10", "i2c-1 I2C_RDWR w 0x2f 1c 02",
                                    "i2c-1 I2C_RETRIES 10", "i2c-1 I2C_RDWR w 0x2f 05 ff"));
  tessaline_board_chip_present("pot", 0);
  EXPECT_EQ(SetLaserPower(50), -1);
}

TEST_F(Catalogue, DaConverterTakesTwelveBits) {
  EXPECT_EQ(DAWrite(0x1234), 0);
  EXPECT_THAT(Events(), ElementsAre("i2c-1 I2C_RETRIES 10", "i2c-1 I2C_RDWR w 0x60 02 34"));
  tessaline_board_chip_present("da", 0);
  EXPECT_EQ(DAWrite(1), -1);
}

TEST_F(Catalogue, ProcessorTemperatureIsInDegrees) {
  tessaline_board_set_temperature_raw(2500);
  EXPECT_NEAR(GetCpuTemp(), 34.45, 0.01);
}

// --- Traces ------------------------------------------------------------------------------

std::string traced;
void Remember(log_Event* ev) {
  char text[128];
  vsnprintf(text, sizeof text, ev->fmt, ev->ap);
  if (strncmp(ev->file, "VeltranoApi", 11) == 0) traced += std::string(text) + ";";
}

class TracedCatalogue : public Catalogue {
 protected:
  void SetUp() override {
    log_add_callback(Remember, nullptr, LOG_TRACE);
    Catalogue::SetUp();
    traced.clear();
  }
};

TEST_F(TracedCatalogue, EveryCallIsTracedOnceByName) {
  SetTriMode(1);
  GetEncoderCounter();
  SetCollectMode(1);
  SetExposureTime(1, 10);
  SetSensingMode(0);
  SetExtTriggerState(3);
  Temp18b20Read();
  QV4l2Buf(1000);
  EXPECT_EQ(traced,
            "SetTriMode;GetEncoderCounter;SetCollectMode;SetExposureTime;SetSensingMode;"
            "SetExtTriggerState;Temp18b20Read;QV4l2Buf;");
}

}  // namespace
