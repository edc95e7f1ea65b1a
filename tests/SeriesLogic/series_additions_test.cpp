// What every series adds to the common programming. A table lists the calls of its devices. For
// each moment, the test compares every access, in order, with the same calls made by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "DeviceManager.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/gmax2509/GMAX2509.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "support/LoggedLines.h"
#include "tessaline/tessaline.h"

namespace VeltranoSDK {
namespace {

using tessaline_test::BoardFixture;
using tessaline_test::LoggedErrors;
using tessaline_test::Wrote;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;
using Models = std::vector<std::string_view>;

// --- The table -----------------------------------------------------------------------------

const Models k22{"K3710", "K3710arm_rebuild", "K3710ch16", "K3710ch16arm_rebuild"};
const Models k22ch16{"K3710ch16", "K3710ch16arm_rebuild"};
const Models k22ch16Arm{"K3710ch16arm_rebuild"};
const Models k23{"K3820", "K3810"};
const Models k24{"K3920", "K3910arm_rebuild", "K3930", "K39arm_rebuild"};
const Models k24Upright{"K3920", "K3910arm_rebuild"};
const Models k25{"K4010", "K4010arm_rebuild"};

FpgaLogic& TheFpga() { return *DeviceManagerHolder::Instance()->fpga_logic_; }

template <typename Driver>
Driver& Sensor() {
  return dynamic_cast<Driver&>(*DeviceManagerHolder::Instance()->cmos_sensor_);
}

bool CollectsImages() { return TheFpga().collect_mode() == kCollectImage; }

bool Includes(const Models& models, std::string_view model) {
  return std::find(models.begin(), models.end(), model) != models.end();
}

void ExchangeStripDataModes() {
  switch (TheFpga().GetStripDataMode()) {
    case 1:
      TheFpga().SetStripDataMode(static_cast<StripSelectMode>(2));
      break;
    case 2:
      TheFpga().SetStripDataMode(static_cast<StripSelectMode>(1));
      break;
    default:
      break;
  }
}

void SetLineTimeAndHdr() {
  Sensor<GSPRINT6502BSI>().SetLineTime(!CollectsImages());
  if (TheFpga().GetHDREnable() == 1) Sensor<GSPRINT6502BSI>().SetHdr(true);
}

void SetImageProcessingDefaults() {
  FpgaLogic& fpga = TheFpga();
  fpga.SetBaseThreshold(10);
  fpga.SetObOffset(0);
  fpga.SetBriThresMax(0);
  fpga.SetBriThresMin(0);
  fpga.SetEnhanceEnable(0);
  fpga.SetEnhanceThresMax(0);
  fpga.SetEnhanceThresMin(0);
  fpga.SetEnhanceThresNum(0);
  fpga.SetEnhanceGain(0);
  fpga.SetMedianFilterEnable(0);
  fpga.SetErosionFilterEnable(0);
  fpga.SetErosionThresMax(10);
  fpga.SetErosionThresMin(0);
  fpga.SetErosionThresNum(8);
  fpga.SetErosionFilterStrategy(0);
  fpga.SetImgFlippingEnable(Includes(k24Upright, DeviceManagerHolder::Instance()->model_) ? 0 : 1);
}

struct Addition {
  const Models& models;
  Notification at;
  std::function<void()> calls;
};

const Addition kAdditions[]{
    {k22, kStartupFinished, [] { Sensor<IMX252>().PowerOnSelfTest(); }},
    {k22ch16, kTriggerConfigured, [] { Sensor<IMX252>().SetCh16Mode(1); }},
    {k22ch16Arm, kTriggerConfigured, [] { Sensor<IMX252>().SetStripWidthFollow(true); }},
    {k23, kCollectModeChanged,
     [] { Sensor<GMAX2509>().SetLineTime(CollectsImages() ? 12464 : 152); }},
    {k23, kSensorInitialized, [] { TheFpga().SetImageFilterThrs(10); }},
    {k24, kCollectModeChanged, SetLineTimeAndHdr},
    {k24, kExposureConfigured, [] { TheFpga().SetExposureNumDelta(10'000'000); }},
    {k24, kStripDataModeChanged, ExchangeStripDataModes},
    {k24, kStartupFinished, SetImageProcessingDefaults},
    {k25, kCollectModeChanged,
     [] { Sensor<E2vFlash4k>().ModifyHorizontalBlanking(CollectsImages() ? 256 : 1); }},
    {k25, kExposureConfigured, [] { TheFpga().SetExposureNumDelta(10'000'000); }},
};

// --- A board to compare on -----------------------------------------------------------------

// The state that the callbacks of the series check.
struct Situation {
  CollectMode collect_mode;
  unsigned int hdr;
  unsigned int strip_data_mode;
};

std::ostream& operator<<(std::ostream& out, const Situation& situation) {
  return out << "collect mode " << situation.collect_mode << ", HDR " << situation.hdr
             << ", strip data mode " << situation.strip_data_mode;
}

constexpr Situation kSituations[]{{kCollectImage, 0, 0},
                                  {kCollectLaserLine, 0, 1},
                                  {kCollectImage, 1, 2},
                                  {kCollectLaserLine, 1, 3}};

class AdditionsOf : public BoardFixture, public ::testing::WithParamInterface<const char*> {
 protected:
  AdditionsOf() : BoardFixture(GetParam()) {}

  void SetUp() override {
    BoardFixture::SetUp();
    GetLibVersion(GetParam());
    log_set_quiet(true);
  }

  static SeriesLogic& series() { return *SeriesLogicFactory::GetSeriesLogicInstance(); }

  static bool Is(const Models& models) { return Includes(models, GetParam()); }

  static void AddByHand(Notification notification) {
    for (const Addition& addition : kAdditions) {
      if (addition.at == notification && Is(addition.models)) addition.calls();
    }
  }

  // Powers up the board again, with matching devices.
  static void PowerUp() {
    ASSERT_EQ(tessaline_board_select(GetParam()), 0);
    ASSERT_TRUE(DeviceManagerHolder::Instance()->Init());
  }

  // Returns all accesses that some calls make on a new board.
  static Lines EventsOf(const Situation& situation, const std::function<void()>& calls) {
    PowerUp();
    TheFpga().SetCollectMode(situation.collect_mode);
    Set(fpga::kReg.HDR_CTRL, situation.hdr);
    Set(fpga::kReg.STRIP_DATA_MODE, situation.strip_data_mode);
    // Registers start with these values, so that the test sees which call clears which. All ones
    // would look like a failed read.
    for (const fpga::Register& reg :
         {fpga::kReg.BASE_THRESHOLD, fpga::kReg.OB_OFFSET, fpga::kReg.BRI_THRES,
          fpga::kReg.ENHANCE_CTRL, fpga::kReg.MEDIAN_CTRL, fpga::kReg.EROSION_CTRL,
          fpga::kReg.ISP_CTRL}) {
      Set(reg, 0x7FFFFFFF);
    }
    tessaline_board_transcript_clear();
    calls();
    return Events();
  }

  static Lines EventsOf(const std::function<void()>& calls) {
    return EventsOf(kSituations[0], calls);
  }
};

INSTANTIATE_TEST_SUITE_P(Series, AdditionsOf,
                         ::testing::Values("K3610", "K3710", "K3710arm_rebuild", "K3710ch16",
                                           "K3710ch16arm_rebuild", "K3810", "K3820", "K3920",
                                           "K3910arm_rebuild", "K3930", "K39arm_rebuild", "K4010",
                                           "K4010arm_rebuild"),
                         [](const auto& row) { return std::string(row.param); });

// --- Notifications -------------------------------------------------------------------------

TEST_P(AdditionsOf, EveryNotificationMakesTheCallsOfTheTable) {
  for (const Situation& situation : kSituations) {
    for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
      SCOPED_TRACE(::testing::Message() << "notification " << n << ", " << situation);
      const auto notification = static_cast<Notification>(n);
      const Lines expected = EventsOf(situation, [&] { AddByHand(notification); });
      EXPECT_EQ(EventsOf(situation, [&] { series().Notify(notification); }), expected);
    }
  }
}

// The sensors of series 22 receive the number of channels, whose effect is visible later.
class ChannelsOf : public AdditionsOf {};

INSTANTIATE_TEST_SUITE_P(Series, ChannelsOf,
                         ::testing::Values("K3710", "K3710ch16", "K3710ch16arm_rebuild"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(ChannelsOf, AreKnownToTheSensorOnceTheTriggerIsConfigured) {
  const auto use_sensor = [] {
    Sensor<IMX252>().RegisterInitialize(kDriveMode00);
    Sensor<IMX252>().SetROI(8, 4, 640, 480);
  };
  const Lines expected = EventsOf([&] {
    AddByHand(kTriggerConfigured);
    use_sensor();
  });
  EXPECT_EQ(EventsOf([&] {
              series().Notify(kTriggerConfigured);
              use_sensor();
            }),
            expected);
  EXPECT_EQ(Sensor<IMX252>().TransferMaxFrameValue(), Is(k22ch16) ? 0x00D9260Du : 0x0136260Du);
  const auto width = "fpga " + Wrote(fpga::kReg.STRIP_SELECTOR_IMAGE_WIDTH, 640);
  EXPECT_EQ(std::count(expected.begin(), expected.end(), width), Is(k22ch16Arm) ? 1 : 0);
}

// --- Exported functions --------------------------------------------------------------------

TEST_P(AdditionsOf, CollectModesProgramTheFpgaAndThenTheSeries) {
  for (const Situation& situation : kSituations) {
    for (const CollectMode mode : {kCollectLaserLine, kCollectImage}) {
      SCOPED_TRACE(::testing::Message() << "mode " << mode << " after " << situation);
      const Lines expected = EventsOf(situation, [&] {
        TheFpga().SetCollectMode(mode);
        AddByHand(kCollectModeChanged);
        if (mode == kCollectImage) AddByHand(kExposureConfigured);
      });
      EXPECT_EQ(EventsOf(situation, [&] { EXPECT_EQ(SetCollectMode(mode), 0); }), expected);
      const unsigned int images_delta = Is(k24) || Is(k25) ? 10'000'000 : 6000;
      EXPECT_EQ(Get(fpga::kReg.EXPOSURE_NUM) >> 3, mode == kCollectImage ? images_delta : 1);
    }
  }
}

TEST_P(AdditionsOf, ARefusedCollectModeTouchesNothing) {
  for (const unsigned int mode : {2u, 3u, 0xFFFFFFFFu}) {
    EXPECT_THAT(EventsOf([&] { EXPECT_EQ(SetCollectMode(mode), -1); }), IsEmpty()) << mode;
  }
}

TEST_P(AdditionsOf, StripDataModesAreWrittenAndThenTheSeriesHasItsSay) {
  for (const unsigned int mode : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE(mode);
    const Lines expected = EventsOf([&] {
      TheFpga().SetStripDataMode(static_cast<StripSelectMode>(mode));
      AddByHand(kStripDataModeChanged);
    });
    EXPECT_EQ(EventsOf([&] { EXPECT_EQ(SetStripDataMode(mode), 0); }), expected);
    const unsigned int exchanged[]{0, 2, 1, 3};
    EXPECT_EQ(GetStripDataMode(), Is(k24) ? exchanged[mode] : mode);
  }
}

// --- Start-up ------------------------------------------------------------------------------

// Writes to the FPGA and the sensor. Leaves out polls of a sensor's status and everything that the
// capture threads do.
Lines Programming(Lines::const_iterator first, Lines::const_iterator last) {
  Lines writes;
  std::copy_if(first, last, std::back_inserter(writes), [](const std::string& event) {
    if (event.starts_with("i2c-0 I2C_RDWR w ")) return event.find("; r ") == event.npos;
    return event.starts_with("fpga write ") || event.starts_with("spi1.0 write ") ||
           event.starts_with("spi0.0 write ");
  });
  return writes;
}

Lines Programming(const Lines& events) { return Programming(events.begin(), events.end()); }

void ConfigureExposure() {
  TheFpga().EnableCollectModeSignal();
  TheFpga().SetExposureNum(1);
  TheFpga().SetExposureNumDelta(6000);
}

void ConfigureTrigger() {
  TheFpga().CameraReset();
  TheFpga().SetCmosSensorWorkMode(static_cast<CameraSensorMode>(1));
  TheFpga().SetTriMode(static_cast<TriggerMode>(3));
  TheFpga().SetTriSpacing(4000);
  TheFpga().SetGlobalControl(kOff);
}

// After its first trigger, the self-test of series 22 depends on the images that arrive. The rest
// of it is not part of start-up.
TEST_P(AdditionsOf, StartUpIsTheCommonStepsWithTheSeriesInBetween) {
  PowerUp();
  tessaline_board_transcript_clear();
  ConfigureExposure();
  AddByHand(kExposureConfigured);
  ConfigureTrigger();
  AddByHand(kTriggerConfigured);
  DeviceManagerHolder::Instance()->cmos_sensor_->RegisterInitialize(kDriveMode00);
  AddByHand(kSensorInitialized);
  TheFpga().SetLaserMode(static_cast<LaserMode>(0));
  const Lines expected_before = Programming(Events());
  tessaline_board_transcript_clear();
  AddByHand(kStartupFinished);
  Lines expected_after = Programming(Events());

  ASSERT_EQ(tessaline_board_select(GetParam()), 0);
  tessaline_board_transcript_clear();
  ASSERT_EQ(RegisterHardwareInit(), 0);
  const Lines events = Events();
  const auto streams = [&](const char* device) {
    return std::find(events.begin(), events.end(), std::string(device) + " VIDIOC_STREAMON");
  };
  const auto both_stream = std::max(streams("video0"), streams("video1"));
  ASSERT_NE(both_stream, events.end());
  EXPECT_EQ(Programming(events.begin(), both_stream), expected_before);

  Lines after = Programming(both_stream, events.end());
  if (Is(k22)) {
    // Until its first trigger the self-test is the same with and without images.
    constexpr std::size_t kUntilTheTrigger = 3;
    ASSERT_GE(after.size(), kUntilTheTrigger);
    after.resize(kUntilTheTrigger);
    expected_after.resize(kUntilTheTrigger);
  }
  EXPECT_EQ(after, expected_after);
}

// --- Without devices -----------------------------------------------------------------------

// What is logged about missing devices, at all six moments in turn.
struct Missing {
  const Models& models;
  Lines without_sensor;
  Lines without_any;
};

const Missing kMissing[]{
    {k22ch16Arm,
     {"SeriesLogic22", "SeriesLogic22ch16", "SeriesLogic22ch16Arm"},
     {"SeriesLogic22", "SeriesLogic22ch16", "SeriesLogic22ch16Arm"}},
    {k22ch16, {"SeriesLogic22", "SeriesLogic22ch16"}, {"SeriesLogic22", "SeriesLogic22ch16"}},
    {k22, {"SeriesLogic22"}, {"SeriesLogic22"}},
    {k23, {"SeriesLogic23"}, {"SeriesLogic23", "SeriesLogic23"}},
    {k24, {"SeriesLogic24"}, {"SeriesLogic24", "SeriesLogic24", "SeriesLogic24", "SeriesLogic24"}},
    {k25, {"SeriesLogic25"}, {"SeriesLogic25", "SeriesLogic25"}},
};

std::vector<::testing::Matcher<std::string>> Tellers(const Lines& names) {
  std::vector<::testing::Matcher<std::string>> lines;
  for (const std::string& name : names) lines.push_back(HasSubstr(": " + name + ": "));
  return lines;
}

class WithoutDevices : public AdditionsOf {
 protected:
  static void NotifyAll() {
    for (int n = kCollectModeChanged; n <= kStripDataModeChanged; ++n) {
      series().Notify(static_cast<Notification>(n));
    }
  }

  static Lines Told(Lines Missing::*names) {
    for (const Missing& missing : kMissing) {
      if (Is(missing.models)) return missing.*names;
    }
    return {};
  }
};

INSTANTIATE_TEST_SUITE_P(Series, WithoutDevices,
                         ::testing::Values("K3610", "K3710", "K3710ch16", "K3710ch16arm_rebuild",
                                           "K3810", "K3820", "K3920", "K3910arm_rebuild", "K4010",
                                           "K4010arm_rebuild"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(WithoutDevices, AMissingSensorIsToldByTheSeries) {
  PowerUp();
  DeviceManagerHolder::Instance()->cmos_sensor_ = nullptr;
  const LoggedErrors errors;
  NotifyAll();
  EXPECT_THAT(errors.lines(), ElementsAreArray(Tellers(Told(&Missing::without_sensor))));
}

TEST_P(WithoutDevices, EverythingMissingIsToldByTheSeries) {
  const LoggedErrors errors;
  NotifyAll();
  EXPECT_THAT(errors.lines(), ElementsAreArray(Tellers(Told(&Missing::without_any))));
  EXPECT_THAT(Accesses(), IsEmpty());
}

}  // namespace
}  // namespace VeltranoSDK
