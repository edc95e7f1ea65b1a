// Functions that do more than pass on a number.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "api/HeldImages.h"
#include "api/StartedBoard.h"

namespace {

using tessaline_test::HeldImages;
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

class Catalogue : public StartedBoard {
 protected:
  // A sensor register and the high byte that follows it.
  static int ChipWord(unsigned address) {
    return tessaline_board_chip_get("sensor", address) |
           tessaline_board_chip_get("sensor", address + 1) << 8;
  }
  static void SetTemperatureCode(unsigned code) {
    ASSERT_EQ(tessaline_board_chip_set("sensor", 0x301E, code & 0xFF), 0);
    ASSERT_EQ(tessaline_board_chip_set("sensor", 0x301F, code >> 8), 0);
  }
};

// --- Acquisition -------------------------------------------------------------------------

TEST_F(Catalogue, StopAfterAStartWaitsASecondAndReadsTheTimer) {
  EXPECT_EQ(SetGlobalControl(1), 0);
  EXPECT_EQ(GetGlobalControl(), 1u);
  tessaline_board_transcript_clear();
  EXPECT_EQ(SetGlobalControl(0), 0);
  const auto steps = Steps();
  ASSERT_EQ(steps.size(), 5u);
  EXPECT_EQ(steps[0], Read(fpga::kReg.TRIGGER_CTRL, 0x43));
  EXPECT_EQ(steps[1], Wrote(fpga::kReg.TRIGGER_CTRL, 0x03));
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
  EXPECT_THAT(Accesses(),
              ElementsAre(Read(fpga::kReg.TRIGGER_CTRL, 3), Wrote(fpga::kReg.TRIGGER_CTRL, 3)));
  // It does not count as a start, so the stop does not wait.
  EXPECT_EQ(SetGlobalControl(0), 0);
  EXPECT_THAT(Steps(), Not(Contains(Slept(1'000'000))));
}

// The second image is older than the stop, but a master delivers it.
TEST_F(Catalogue, AMasterDeliversImagesFromBeforeTheStop) {
  EXPECT_EQ(SetMasterState(2), 0);
  EXPECT_THAT(Writes(), ElementsAre(Wrote(fpga::kReg.MASTER_CTRL, 0)));
  HeldImages::StopBetweenTwo();
  EXPECT_THAT(HeldImages::Delivered(2), ElementsAre(1u, 2u));
}

TEST_F(Catalogue, AFormerMasterDropsThemAgain) {
  EXPECT_EQ(SetMasterState(1), 0);
  EXPECT_EQ(SetMasterState(0), 0);
  HeldImages::StopBetweenTwo();
  HeldImages::TriggerOnce();
  EXPECT_THAT(HeldImages::Delivered(2), ElementsAre(1u, 3u));
}

// --- Strips ------------------------------------------------------------------------------

// The bits that a reconstruction coefficient's register keeps. A negative number has one more.
struct Coefficients {
  std::size_t count;
  std::uint32_t below_zero;
};
constexpr std::array kCoefficients{Coefficients{9, 0x7FFFFF},  Coefficients{2, 0x1FFFFFFF},
                                   Coefficients{1, 0x3FFFFFF}, Coefficients{2, 0x1FFFFFFF},
                                   Coefficients{1, 0x3FFFFFF}, Coefficients{2, 0x1FFFFFFF},
                                   Coefficients{1, 0x3FFFFFF}, Coefficients{3, 0x3FFFF}};

std::string RebuildLine(const std::vector<int>& values) {
  std::string line = "SetStripRebuildValue";
  for (const int value : values) line += " " + std::to_string(value);
  return line + "\n";
}

TEST_F(Catalogue, CoefficientsAreCutToTheirRegistersAndHandedBack) {
  for (const int value : {1234, 0x40000, INT32_MAX, -1, INT32_MIN}) {
    std::vector<int> cut;
    std::vector<std::string> writes;
    for (const auto& [count, below_zero] : kCoefficients) {
      const std::uint32_t word =
          static_cast<std::uint32_t>(value) & (value < 0 ? below_zero : below_zero >> 1);
      for (std::size_t i = 0; i < count; ++i) {
        writes.push_back(Wrote(fpga::StripRebuild(cut.size()), word));
        cut.push_back(static_cast<int>(word));
      }
    }
    std::vector<int> values(21, value);
    const std::string before = RebuildLine(values);
    tessaline_board_transcript_clear();
    EXPECT_EQ(SetStripRebuildValue(values.data()), 0);
    EXPECT_EQ(values, cut);
    EXPECT_EQ(Printed(), before + RebuildLine(cut));
    EXPECT_THAT(Steps(), ElementsAreArray(writes));
  }
}

// The driver already has the buffer, or the buffer does not exist. The driver gets no request.
TEST_F(Catalogue, ABufferNobodyTookCannotBeReturned) {
  for (const unsigned int index : {0u, 17u, 18u, 1000u}) EXPECT_EQ(QV4l2Buf(index), -1) << index;
  EXPECT_EQ(Errors().size(), 4u);
  EXPECT_THAT(Events(), IsEmpty());
}

// --- Sensor ------------------------------------------------------------------------------

TEST_F(Catalogue, AnExposureThatDoesNotExistIsAnError) {
  EXPECT_EQ(SetExposureTime(6, 1000), -1);
  EXPECT_THAT(Errors(), ElementsAre("Devices/FpgaLogicExposure.cpp: SetExpTime: there is no "
                                    "exposure slot 5, slots are 0 to 4"));
}

// In the reduced mode a line takes 2.936027 microseconds.
TEST_F(Catalogue, ExposuresLastWholeLinesOfTheDriveMode) {
  EXPECT_EQ(SetDriveMode(0x11), 0);
  EXPECT_EQ(SetExposureTime(2, 1000), 0);
  EXPECT_EQ(Get(fpga::kReg.EXP_TIME_2), 341u);
}

TEST_F(Catalogue, GainIsInTenthsOfADecibel) {
  EXPECT_EQ(SetCmosGain(30), 1);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3204), 300 & 0xFF);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3205) & 1, 1);
  EXPECT_THAT(Events(), Contains("i2c-0 I2C_RDWR w 0x36 32 04 2c"));
  EXPECT_EQ(SetCmosGain(2), 1);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3204), 20);
  EXPECT_EQ(tessaline_board_chip_get("sensor", 0x3205) & 1, 0);
  EXPECT_THAT(Events(), Contains("i2c-0 I2C_RDWR w 0x36 32 04 14"));
}

TEST_F(Catalogue, GainHasItsOwnResults) {
  EXPECT_EQ(SetCmosGain(2), 1);
  tessaline_board_chip_present("sensor", 0);
  EXPECT_EQ(SetCmosGain(2), 0);
}

TEST_F(Catalogue, SensorTemperatureTellsOnlyWhetherThereIsOne) {
  EXPECT_EQ(GetSensorTemp(), 0);
  SetTemperatureCode(1);
  EXPECT_EQ(GetSensorTemp(), 0);
  SetTemperatureCode(0);
  EXPECT_EQ(GetSensorTemp(), -1);
}

// A bus that fails reads as all ones.
TEST_F(Catalogue, ASensorThatDoesNotAnswerHasATemperatureToo) {
  tessaline_board_chip_present("sensor", 0);
  EXPECT_EQ(GetSensorTemp(), 0);
}

TEST_F(Catalogue, MaximumFrameValueFollowsTheDriveMode) {
  EXPECT_EQ(TransferMaxFrameValue(), 0x00EE2A11u);
  EXPECT_EQ(SetDriveMode(0x11), 0);
  EXPECT_EQ(TransferMaxFrameValue(), 0x00DA2A11u);
}

TEST_F(Catalogue, RegionGoesToTheSensorColumnsFirst) {
  EXPECT_EQ(SetROI1(0x80, 0x100, 1000, 601), 0);
  EXPECT_EQ(ChipWord(0x3310) & 0x1FFF, 0x80);
  EXPECT_EQ(ChipWord(0x3312) & 0x0FFF, 0x100);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_WIDTH), 1000u);
  EXPECT_EQ(Get(fpga::kReg.STRIP_IMAGE_HEIGHT), 601u);
}

TEST_F(Catalogue, DirectionGoesToTheSensor) {
  for (const unsigned int direction : {1u, 2u, 3u, 0u}) {
    EXPECT_EQ(SetReverseMode(direction), 0);
    EXPECT_EQ(tessaline_board_chip_get("sensor", 0x300E) & 3, static_cast<int>(direction));
  }
  tessaline_board_chip_present("sensor", 0);
  EXPECT_EQ(SetReverseMode(1), -1);
}

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

// Without light there is no reason to wait.
TEST_F(Catalogue, ALaserThatStaysDarkIsNotWaitedFor) {
  for (const unsigned int line_files : {0u, 3u}) {  // the first line fails, or the second
    tessaline_board_clear_faults();
    tessaline_board_transcript_clear();
    tessaline_board_fault("gpio", "write", line_files, 0, EIO);
    EXPECT_EQ(OpenLaser(), -1);
    EXPECT_THAT(Steps(), IsEmpty());
  }
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

std::vector<std::string> capture_calls;  // by threads other than the two capture threads
void Remember(log_Event* ev) {
  char text[128];
  vsnprintf(text, sizeof text, ev->fmt, ev->ap);
  const std::string file(ev->file);
  for (const char* stream : {"Strip", "Video"}) {
    const bool setter = strncmp(text, "Set", 3) == 0 || strstr(text, "BufClear") != nullptr;
    if (setter && file == std::string("Runnable/Capture") + stream + "Stream.cpp") {
      capture_calls.push_back(std::string(stream) + ": " + text);
    }
  }
}

class TracedCatalogue : public Catalogue {
 protected:
  void SetUp() override {
    log_add_callback(Remember, nullptr, TESSALINE_LOG_TRACE);
    Catalogue::SetUp();
    capture_calls.clear();
  }
};

// Calls that concern the strip thread too go to it first.
TEST_F(TracedCatalogue, AStopGivesBothThreadsItsTime) {
  SetGlobalControl(1);
  EXPECT_THAT(capture_calls, IsEmpty());
  SetGlobalControl(0);
  EXPECT_THAT(capture_calls, ElementsAre("Strip: SetMinTimeStamp", "Video: SetMinTimeStamp"));
}

TEST_F(TracedCatalogue, AMasterTellsBothThreads) {
  SetMasterState(1);
  EXPECT_THAT(capture_calls, ElementsAre("Strip: SetTimeStampHold", "Video: SetTimeStampHold"));
}

TEST_F(TracedCatalogue, ResetFrameIdClearsStripsThenImages) {
  ResetFrameID();
  EXPECT_THAT(capture_calls, ElementsAre("Strip: StripBufClear", "Video: VideoBufClear"));
}

TEST_F(TracedCatalogue, TheStripThreadLearnsOfAWriteStrategyThatWasAccepted) {
  tessaline_board_fault("fpga", "mmap", 1, 1, ENOMEM);
  SetStripWriteMemMode(1);
  EXPECT_THAT(capture_calls, IsEmpty());
  SetStripWriteMemMode(1);
  EXPECT_THAT(capture_calls, ElementsAre("Strip: SetWriteMemMode"));
}

}  // namespace
