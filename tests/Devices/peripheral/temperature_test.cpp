// On-chip temperatures of both processors.
#include <cerrno>

#include "Devices/DeviceTest.h"
#include "Devices/peripheral/TemperatureSensor18b20.h"
#include "Devices/peripheral/XSysMonTemperatureOnChipFactory.h"
#include "Devices/peripheral/ZynqTemp.h"
#include "Devices/peripheral/ZynqmpTemp.h"

namespace VeltranoSDK {
namespace {

using ::testing::ElementsAre;

Lines told;

void Remember(log_Event* event) {
  char text[160];
  vsnprintf(text, sizeof text, event->fmt, event->ap);
  told.push_back(std::string(log_level_string(event->level)) + ' ' + text);
}

class Temperature : public DeviceTest {
 protected:
  using DeviceTest::DeviceTest;

  // The logger's sinks cannot be removed, so the whole process uses one.
  static void SetUpTestSuite() {
    static const bool once = (log_add_callback(Remember, nullptr, TESSALINE_LOG_TRACE), true);
    static_cast<void>(once);
  }

  void SetUp() override {
    DeviceTest::SetUp();
    told.clear();
  }

  static void RemoveSensor() { tessaline_board_fault("iio", "open", 0, 0, ENOENT); }
};

TEST_F(Temperature, ZynqConvertsTheRawValue) {
  tessaline_board_set_temperature_raw(2500);
  ZynqTemp sensor;
  EXPECT_EQ(sensor.GetTemp(), static_cast<float>(2500 * 503.975 / 4096 - 273.15));
  EXPECT_THAT(told, ElementsAre("TRACE GetTemp succuffully. temperature 34.451927\n"));
}

TEST_F(Temperature, ZynqWithoutDeviceConvertsZero) {
  RemoveSensor();
  ZynqTemp sensor;
  float degrees = 0;
  PrintedAsError([&] { degrees = sensor.GetTemp(); });
  EXPECT_EQ(degrees, -273.15f);
  EXPECT_THAT(
      told, ElementsAre("ERROR fopen /sys/devices/soc0/amba/f8007100.adc/iio:device0/in_temp0_raw "
                        "failed!\n",
                        ::testing::StartsWith("TRACE GetTemp succuffully. temperature -273.1")));
}

TEST_F(Temperature, IsReadAnewEveryTime) {
  ZynqTemp sensor;
  tessaline_board_set_temperature_raw(0);
  EXPECT_EQ(sensor.GetTemp(), -273.15f);
  tessaline_board_set_temperature_raw(4096);
  EXPECT_EQ(sensor.GetTemp(), static_cast<float>(503.975 - 273.15));
}

TEST_F(Temperature, NoDescriptorIsLeftBehind) {
  ZynqTemp sensor;
  for (int i = 0; i < 5; ++i) sensor.GetTemp();
  EXPECT_EQ(tessaline_board_open_files("iio"), 0);
}

TEST_F(Temperature, KindBySeries) {
  for (int series = -1; series <= 10; ++series) {
    const auto sensor = XSysMonTemperatureOnChipFactory::CreateXSysMonTemperatureOnChipBySeries(
        static_cast<SeriesNumber>(series));
    EXPECT_EQ(dynamic_cast<ZynqmpTemp*>(sensor.get()) != nullptr, series == 8) << series;
    EXPECT_EQ(dynamic_cast<ZynqTemp*>(sensor.get()) != nullptr, series != 8) << series;
  }
}

TEST_F(Temperature, BoardSensorIsAlwaysZero) { EXPECT_EQ(ReadTemperatureSensor18b20(), 0); }

// A K4010 has a different file and a different scale.
class ZynqMpTemperature : public Temperature {
 protected:
  ZynqMpTemperature() : Temperature("K4010", kSeries25) {}
};

TEST_F(ZynqMpTemperature, ConvertsTheRawValue) {
  tessaline_board_set_temperature_raw(40000);
  ZynqmpTemp sensor;
  EXPECT_EQ(sensor.GetTemp(), static_cast<float>(40000 * 509.314 / 65536 - 280.23));
  EXPECT_THAT(told, ElementsAre("TRACE GetTemp succuffully. temperature 30.630596\n"));
}

TEST_F(Temperature, ZynqMpWithoutDeviceConvertsZero) {
  ZynqmpTemp sensor;
  float degrees = 0;
  PrintedAsError([&] { degrees = sensor.GetTemp(); });
  EXPECT_EQ(degrees, -280.23f);
  EXPECT_EQ(told.front(),
            "ERROR fopen /sys/bus/iio/devices/iio:device0/in_temp0_ps_temp_raw failed!\n");
}

}  // namespace
}  // namespace VeltranoSDK
