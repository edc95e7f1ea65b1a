// The device objects of every product, and the holders of singletons.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <typeinfo>
#include <vector>

#include "DeviceManager.h"
#include "Devices/capture/V4l2Fd.h"
#include "Devices/capture/V4l2FdUserPtr.h"
#include "Devices/capture/V4l2FdUserPtrSync.h"
#include "Devices/fpga/FpgaLogic25.h"
#include "Devices/peripheral/AD5175DigiPOT.h"
#include "Devices/peripheral/DaChip.h"
#include "Devices/peripheral/Laser.h"
#include "Devices/peripheral/LaserLed.h"
#include "Devices/peripheral/RangeLed.h"
#include "Devices/peripheral/TPL0401B.h"
#include "Devices/peripheral/ZynqTemp.h"
#include "Devices/peripheral/ZynqmpTemp.h"
#include "Devices/sensor/e2v_flash4k/E2vFlash4k.h"
#include "Devices/sensor/gmax2509/GMAX2509.h"
#include "Devices/sensor/gsprint6502bsi/GSPRINT6502BSI.h"
#include "Devices/sensor/imx252/IMX252.h"
#include "Devices/sensor/imx273/IMX273.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SingletonHolder.h"
#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/startup.h"

namespace VeltranoSDK {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

// --- The devices of a product --------------------------------------------------------------

// A variant has the devices of its family.
struct Product {
  const char* model;
  const std::type_info& fpga;
  const std::type_info& strip_buffers;
  const std::type_info& potentiometer;
  const std::type_info& temperature;
  const std::type_info& sensor;
};

void PrintTo(const Product& product, std::ostream* out) { *out << product.model; }

const Product kProducts[] = {
    {"K3610", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp),
     typeid(IMX273)},
    {"K3710", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp),
     typeid(IMX252)},
    {"K3710ch16", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp), typeid(IMX252)},
    {"K3710ch16arm_rebuild", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp), typeid(IMX252)},
    {"K3820", typeid(FpgaLogic25), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp),
     typeid(GMAX2509)},
    {"K3810", typeid(FpgaLogic25), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp),
     typeid(GMAX2509)},
    {"K3920", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtrSync), typeid(TPL0401B),
     typeid(ZynqTemp), typeid(GSPRINT6502BSI)},
    {"K3920arm_rebuild", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtrSync), typeid(TPL0401B),
     typeid(ZynqTemp), typeid(GSPRINT6502BSI)},
    {"K4010", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtr), typeid(TPL0401B),
     typeid(ZynqmpTemp), typeid(E2vFlash4k)},
    {"K4010arm_rebuild", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtr), typeid(TPL0401B),
     typeid(ZynqmpTemp), typeid(E2vFlash4k)},
};

class DevicesOf : public tessaline_test::BoardFixture,
                  public ::testing::WithParamInterface<Product> {
 protected:
  DevicesOf() : BoardFixture(GetParam().model) {}

  void SetUp() override {
    BoardFixture::SetUp();
    GetLibVersion(GetParam().model);
  }
};

template <typename Device>
void ExpectIs(const std::shared_ptr<Device>& device, const std::type_info& type) {
  ASSERT_NE(device, nullptr) << type.name();
  const Device& made = *device;
  EXPECT_EQ(typeid(made), type) << typeid(made).name();
}

TEST_P(DevicesOf, AreMadeByItsSeries) {
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  ExpectIs(series->CreateFpgaLogic(), GetParam().fpga);
  ExpectIs(series->CreateV4l2Buf(), GetParam().strip_buffers);
  ExpectIs(series->CreateDigitalPOT(), GetParam().potentiometer);
  ExpectIs(series->CreateXSysMonTemperatureOnChip(), GetParam().temperature);
  ExpectIs(series->CreateCmosSensor(), GetParam().sensor);
}

TEST_P(DevicesOf, AreAllInTheManagerAfterInit) {
  DeviceManager& devices = *DeviceManagerHolder::Instance();
  ASSERT_TRUE(devices.Init());
  ExpectIs(devices.fpga_logic_, GetParam().fpga);
  ExpectIs(devices.v4l2_buf_, GetParam().strip_buffers);
  ExpectIs(devices.digital_pot_, GetParam().potentiometer);
  ExpectIs(devices.temperature_, GetParam().temperature);
  ExpectIs(devices.cmos_sensor_, GetParam().sensor);
  ExpectIs(devices.da_chip_, typeid(DaChip));
  ExpectIs(devices.laser_, typeid(Laser));
  ExpectIs(devices.range_led_, typeid(RangeLed));
  ExpectIs(devices.laser_led_, typeid(LaserLed));
  EXPECT_EQ(devices.model_, GetParam().model);
}

INSTANTIATE_TEST_SUITE_P(DeviceManager, DevicesOf, ::testing::ValuesIn(kProducts),
                         [](const auto& row) { return std::string(row.param.model); });

// The board of every family, as its devices use it.
struct Wiring {
  std::string_view family;
  unsigned int fpga_series;
  const char* sensor_bus;
  const char* laser_bus;           // bus of the potentiometer and the DA converter
  std::vector<std::string> lines;  // laser 1, laser 2, red, green, blue, laser LED
};

const Wiring kWirings[] = {
    {"K36", 21, "i2c-0 ", "i2c-1 ", {"907", "934", "961", "962", "963", "969"}},
    {"K37", 22, "i2c-0 ", "i2c-1 ", {"907", "934", "961", "962", "963", "969"}},
    {"K38", 23, "spi1.0 ", "i2c-0 ", {"921", "934", "965", "964", "966", "969"}},
    {"K39", 24, "spi1.0 ", "i2c-0 ", {"921", "934", "965", "964", "966", "969"}},
    {"K40", 25, "spi0.0 ", "i2c-0 ", {"363", "364", "417", "416", "418", "0"}},
};

class WiringOf : public DevicesOf {
 protected:
  void SetUp() override {
    DevicesOf::SetUp();
    ASSERT_TRUE(devices_.Init());
  }

  static const Wiring& wiring() {
    return *std::ranges::find_if(kWirings, [](const Wiring& row) {
      return std::string_view(GetParam().model).starts_with(row.family);
    });
  }

  // The devices that a call uses, without the sleeps in between.
  template <typename Call>
  static std::vector<std::string> EventsOf(Call call) {
    tessaline_board_transcript_clear();
    call();
    auto events = Events();
    std::erase_if(events, [](const std::string& line) { return line.starts_with("sleep "); });
    return events;
  }

  // The level of each line, in the order of the writes.
  template <typename Call>
  static std::vector<std::string> LevelsOf(Call call) {
    auto events = EventsOf(call);
    std::erase_if(events,
                  [](const std::string& line) { return line.find("/value ") == line.npos; });
    return events;
  }

  static std::string Level(std::size_t line, int level) {
    return "gpio write gpio" + wiring().lines[line] + "/value " + std::to_string(level);
  }

  DeviceManager& devices_ = *DeviceManagerHolder::Instance();
};

INSTANTIATE_TEST_SUITE_P(DeviceManager, WiringOf, ::testing::ValuesIn(kProducts),
                         [](const auto& row) { return std::string(row.param.model); });

TEST_P(WiringOf, FpgaAndThermometerAnswer) {
  EXPECT_EQ(devices_.fpga_logic_->GetFPGASeries(), wiring().fpga_series);
  EXPECT_NEAR(devices_.temperature_->GetTemp(), 40, 1);
}

TEST_P(WiringOf, ChipsAreOnTheirBuses) {
  EXPECT_THAT(EventsOf([&] { devices_.cmos_sensor_->SetGain(1); }),
              AllOf(Not(IsEmpty()), Each(StartsWith(wiring().sensor_bus))));
  const auto laser_bus = AllOf(StartsWith(wiring().laser_bus), Not(HasSubstr("failed")));
  EXPECT_THAT(EventsOf([&] { EXPECT_TRUE(devices_.digital_pot_->SetPosition(50)); }),
              AllOf(Not(IsEmpty()), Each(laser_bus)));
  EXPECT_THAT(EventsOf([&] { EXPECT_TRUE(devices_.da_chip_->Write(5)); }),
              AllOf(Not(IsEmpty()), Each(laser_bus)));
}

TEST_P(WiringOf, LinesDriveLaserAndLights) {
  EXPECT_THAT(LevelsOf([&] { EXPECT_TRUE(devices_.laser_->Open()); }),
              ElementsAre(Level(0, 1), Level(1, 1)));
  EXPECT_THAT(LevelsOf([&] {
                EXPECT_TRUE(devices_.range_led_->SetR(kOn));
                EXPECT_TRUE(devices_.range_led_->SetG(kOn));
                EXPECT_TRUE(devices_.range_led_->SetB(kOn));
              }),
              ElementsAre(Level(2, 1), Level(3, 1), Level(4, 1)));
  EXPECT_THAT(LevelsOf([&] { EXPECT_TRUE(devices_.laser_led_->Open()); }),
              ElementsAre(Level(5, 1)));
}

TEST(DeviceManager, WithoutASeriesBuildsNothing) {
  DeviceManager devices;
  EXPECT_FALSE(devices.Init());
  EXPECT_EQ(devices.fpga_logic_, nullptr);
  EXPECT_EQ(devices.cmos_sensor_, nullptr);
  EXPECT_EQ(devices.v4l2_buf_, nullptr);
  EXPECT_EQ(devices.temperature_, nullptr);
  EXPECT_EQ(devices.digital_pot_, nullptr);
  EXPECT_EQ(devices.da_chip_, nullptr);
  EXPECT_EQ(devices.laser_, nullptr);
  EXPECT_EQ(devices.range_led_, nullptr);
  EXPECT_EQ(devices.laser_led_, nullptr);
  EXPECT_EQ(devices.model_, "");
}

// --- The holder ----------------------------------------------------------------------------

std::atomic<int> made = 0;

// Its constructor is slow, so that all threads arrive while the first object is being made.
struct Slow {
  Slow() {
    tessaline_test::ReallyWait(std::chrono::milliseconds(50));
    number = ++made;
  }
  int number = 0;
};

TEST(SingletonHolder, MakesOneWhoeverComesFirst) {
  using Holder = Foundation::SingletonHolder<Slow>;
  constexpr std::size_t kThreads = 8;
  std::array<Slow*, kThreads> seen{};
  std::array<int, kThreads> numbers{};
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      seen[i] = Holder::Instance();
      numbers[i] = seen[i]->number;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, Each(Holder::Instance()));
  EXPECT_THAT(numbers, Each(1)) << "complete when it is handed out";
  EXPECT_EQ(made, 1);
}

}  // namespace
}  // namespace VeltranoSDK
