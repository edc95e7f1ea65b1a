// Laser lines, laser LED and range LED: the three steps of each line, its levels, and what is
// printed if one of its files cannot be opened.
#include <cerrno>

#include "Devices/DeviceTest.h"
#include "Devices/bus/SysfsGpio.h"
#include "Devices/peripheral/Laser.h"
#include "Devices/peripheral/LaserLed.h"
#include "Devices/peripheral/RangeLed.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

Lines LineSteps(const std::string& line, const std::string& value) {
  return {"write export " + line, "write gpio" + line + "/direction out",
          "write gpio" + line + "/value " + value};
}

class GpioLines : public DeviceTest {
 protected:
  using DeviceTest::DeviceTest;

  // The steps without the outcome, because a line can be exported only once and a second export
  // fails.
  static Lines GpioSteps() {
    Lines steps = EventsOf("gpio");
    for (std::string& step : steps) step = step.substr(0, step.find(" failed: "));
    return steps;
  }

  // Lets `index` opens succeed and the next one fail.
  static void FailOpen(unsigned index) {
    tessaline_board_clear_faults();
    tessaline_board_fault("gpio", "open", index, 1, EACCES);
    tessaline_board_transcript_clear();
  }
};

// One operation and, in order, what it prints when each of its opens fails.
struct Failures {
  const char* operation;
  bool (*run)(DeviceManager&);
  std::vector<const char*> printed;
};

const char* const kLaserTexts[]{
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY).\n",
    "error: Laser::Open() open(sysfs_gpio_pin1_direction_.c_str(), O_WRONLY).\n",
    "error: Laser::Open() open(sysfs_gpio_pin1_value_.c_str(), O_RDWR).\n",
    "error: Laser::Open() open(sysfs_gpio_export_, O_WRONLY)2.\n",
    "error: Laser::Open() open(sysfs_gpio_pin28_direction_.c_str(), O_WRONLY).\n",
    "error: Laser::Open() open(sysfs_gpio_pin28_value_.size(), O_RDWR).\n",
};
const char* const kLaserLedTexts[]{
    "error: LaserLed::Open() open(sysfs_gpio_export_, O_WRONLY).\n",
    "error: LaserLed::Open() open(sysfs_gpio_pin63_direction_.c_str(), O_WRONLY).\n",
    "error: LaserLed::Open() open(sysfs_gpio_pin63_value_.c_str(), O_RDWR).\n",
};
const char* const kRangeLedTexts[]{
    "error: RangeLed::SetR() open(sysfs_gpio_export_, O_WRONLY).\n",
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_direction_.c_str(), O_WRONLY).\n",
    "error: RangeLed::SetR() open(sysfs_gpio_pin55_value_.c_str(), O_RDWR).\n",
    "error: RangeLed::SetG() open(sysfs_gpio_export_, O_WRONLY).\n",
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_direction_.c_str(), O_WRONLY).\n",
    "error: RangeLed::SetG() open(sysfs_gpio_pin56_value_.c_str(), O_RDWR).\n",
    "error: RangeLed::SetB() open(sysfs_gpio_export_, O_WRONLY).\n",
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_direction_.c_str(), O_WRONLY).\n",
    "error: RangeLed::SetB() open(sysfs_gpio_pin57_value_.c_str(), O_RDWR).\n",
};

template <std::size_t N>
std::vector<const char*> All(const char* const (&texts)[N]) {
  return {texts, texts + N};
}

const std::vector<Failures> kFailures{
    {"Laser::Open", [](DeviceManager& d) { return d.laser_->Open(); }, All(kLaserTexts)},
    {"Laser::Close", [](DeviceManager& d) { return d.laser_->Close(); }, All(kLaserTexts)},
    {"LaserLed::Open", [](DeviceManager& d) { return d.laser_led_->Open(); }, All(kLaserLedTexts)},
    {"LaserLed::Close", [](DeviceManager& d) { return d.laser_led_->Close(); },
     All(kLaserLedTexts)},
    {"SetColor", [](DeviceManager& d) { return d.range_led_->SetColor(RangeLed::WHITE); },
     All(kRangeLedTexts)},
};

TEST_F(GpioLines, EveryOpenThatFailsHasItsTextAndEndsTheOperation) {
  for (const Failures& row : kFailures) {
    for (unsigned i = 0; i < row.printed.size(); ++i) {
      FailOpen(i);
      EXPECT_EQ(Printed([&] { EXPECT_FALSE(row.run(devices())); }), row.printed[i])
          << row.operation;
      EXPECT_EQ(EventsOf("gpio").size(), i + 1) << row.operation;
    }
  }
}

TEST_F(GpioLines, NoFileIsLeftOpen) {
  for (const Failures& row : kFailures) {
    for (unsigned i = 0; i < row.printed.size(); ++i) {
      FailOpen(i);
      Printed([&] { row.run(devices()); });
      tessaline_board_clear_faults();
      tessaline_board_fault("gpio", "write", i, 1, EIO);
      Printed([&] { row.run(devices()); });
      EXPECT_EQ(tessaline_board_open_files("gpio"), 0) << row.operation;
    }
  }
}

TEST_F(GpioLines, SetRgbReportAsTheirOwnStep) {
  bool (*const setters[])(RangeLed&){[](RangeLed& led) { return led.SetR(kOn); },
                                     [](RangeLed& led) { return led.SetG(kOn); },
                                     [](RangeLed& led) { return led.SetB(kOn); }};
  for (unsigned color = 0; color < 3; ++color) {
    for (unsigned step = 0; step < 3; ++step) {
      FailOpen(step);
      EXPECT_EQ(Printed([&] { EXPECT_FALSE(setters[color](*devices().range_led_)); }),
                kRangeLedTexts[color * 3 + step]);
    }
  }
}

TEST_F(GpioLines, LaserSwitchesBothLines) {
  EXPECT_TRUE(devices().laser_->Open());
  EXPECT_THAT(GpioSteps(), ElementsAreArray(LineSteps("907", "1") + LineSteps("934", "1")));
  EXPECT_EQ(tessaline_board_gpio_level(907), 1);
  EXPECT_EQ(tessaline_board_gpio_level(934), 1);
  tessaline_board_transcript_clear();
  EXPECT_TRUE(devices().laser_->Close());
  EXPECT_THAT(GpioSteps(), ElementsAreArray(LineSteps("907", "0") + LineSteps("934", "0")));
  EXPECT_EQ(tessaline_board_gpio_level(907), 0);
  EXPECT_EQ(tessaline_board_gpio_level(934), 0);
}

TEST_F(GpioLines, LaserIsNotTouchedByItsConstructor) {
  EXPECT_EQ(tessaline_board_gpio_level(907), -1);
  Laser laser;
  EXPECT_THAT(EventsOf("gpio"), IsEmpty());
}

TEST_F(GpioLines, LaserLedIsSwitched) {
  EXPECT_EQ(tessaline_board_gpio_level(969), 0);
  EXPECT_TRUE(devices().laser_led_->Open());
  EXPECT_THAT(GpioSteps(), ElementsAreArray(LineSteps("969", "1")));
  EXPECT_EQ(tessaline_board_gpio_level(969), 1);
  EXPECT_TRUE(devices().laser_led_->Close());
  EXPECT_EQ(tessaline_board_gpio_level(969), 0);
}

TEST_F(GpioLines, ColorFiveIsRedAndBlue) {
  devices().range_led_->SetColor(RangeLed::GREEN);
  tessaline_board_transcript_clear();
  EXPECT_TRUE(devices().range_led_->SetColor(RangeLed::Color(5)));
  EXPECT_THAT(GpioSteps(), ElementsAreArray(LineSteps("961", "1") + LineSteps("962", "0") +
                                            LineSteps("963", "1")));
  EXPECT_EQ(tessaline_board_gpio_level(961), 1);
  EXPECT_EQ(tessaline_board_gpio_level(962), 0);
  EXPECT_EQ(tessaline_board_gpio_level(963), 1);
}

TEST_F(GpioLines, ColorBitsAboveTheThreeAreIgnored) {
  EXPECT_TRUE(devices().range_led_->SetColor(RangeLed::Color(0xFFFFFFF8)));
  for (const unsigned line : {961u, 962u, 963u}) EXPECT_EQ(tessaline_board_gpio_level(line), 0);
}

TEST_F(GpioLines, AStateThatIsNoneLeavesTheLevel) {
  ASSERT_TRUE(devices().range_led_->SetR(kOn));
  tessaline_board_transcript_clear();
  EXPECT_TRUE(devices().range_led_->SetR(STATE(2)));
  EXPECT_THAT(GpioSteps(), ElementsAre("write export 961", "write gpio961/direction out"));
}

TEST_F(GpioLines, ConstructionSwitchesTheLightsOff) {
  { RangeLed led; }
  { LaserLed led; }
  EXPECT_THAT(GpioSteps(), ElementsAreArray(LineSteps("961", "0") + LineSteps("962", "0") +
                                            LineSteps("963", "0") + LineSteps("969", "0")));
}

TEST_F(GpioLines, ConstructionWithoutGpioIsTold) {
  tessaline_board_fault("gpio", "open", 0, 0, ENOENT);
  EXPECT_EQ(Printed([] { RangeLed led; }),
            std::string(kRangeLedTexts[0]) + "error: RangeLed SetColor(RangeLed::Color::BLACK) \n");
  EXPECT_EQ(Printed([] { LaserLed led; }),
            std::string(kLaserLedTexts[0]) + "error: LaserLed Close() \n");
  EXPECT_EQ(Printed([] { Laser laser; }), "");
}

TEST_F(GpioLines, FailedWritesAreNotNoticed) {
  tessaline_board_fault("gpio", "write", 0, 0, EIO);
  EXPECT_EQ(Printed([&] { EXPECT_TRUE(devices().laser_led_->Open()); }), "");
  EXPECT_EQ(tessaline_board_gpio_level(969), 0);
}

TEST(SysfsGpio, BuildsBothPathsOfAPin) {
  const auto [direction, value] = SysfsGpio::GenerateDirectionAndValueBy("907");
  EXPECT_EQ(direction, "/sys/class/gpio/gpio907/direction");
  EXPECT_EQ(value, "/sys/class/gpio/gpio907/value");
}

}  // namespace
}  // namespace VeltranoSDK
