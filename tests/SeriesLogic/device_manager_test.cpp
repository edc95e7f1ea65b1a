// The device objects of every product, and the holders of what exists once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "DeviceManager.h"
#include "Devices/AD5175DigiPOT.h"
#include "Devices/DaChip.h"
#include "Devices/FpgaLogic25.h"
#include "Devices/IMX273.h"
#include "Devices/Laser.h"
#include "Devices/LaserLed.h"
#include "Devices/RangeLed.h"
#include "Devices/TPL0401B.h"
#include "Devices/V4l2Fd.h"
#include "Devices/V4l2FdUserPtr.h"
#include "Devices/V4l2FdUserPtrSync.h"
#include "Devices/ZynqTemp.h"
#include "Devices/ZynqmpTemp.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SingletonHolder.h"
#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/startup.h"

namespace VeltranoSDK {
namespace {

using ::testing::Each;

// --- The devices of a product --------------------------------------------------------------

// A variant has the devices of its family.
struct Product {
  const char* model;
  const std::type_info& fpga;
  const std::type_info& strip_buffers;
  const std::type_info& potentiometer;
  const std::type_info& temperature;
  bool has_sensor = false;
};

void PrintTo(const Product& product, std::ostream* out) { *out << product.model; }

const Product kProducts[] = {
    {"K3610", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp),
     true},
    {"K3710", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT), typeid(ZynqTemp)},
    {"K3710ch16", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp)},
    {"K3710ch16arm_rebuild", typeid(FpgaLogic), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp)},
    {"K3820", typeid(FpgaLogic25), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp)},
    {"K3810", typeid(FpgaLogic25), typeid(DevFOps::V4l2Fd), typeid(AD5175DigiPOT),
     typeid(ZynqTemp)},
    {"K3920", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtrSync), typeid(TPL0401B),
     typeid(ZynqTemp)},
    {"K3920arm_rebuild", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtrSync), typeid(TPL0401B),
     typeid(ZynqTemp)},
    {"K4010", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtr), typeid(TPL0401B),
     typeid(ZynqmpTemp)},
    {"K4010arm_rebuild", typeid(FpgaLogic25), typeid(DevFOps::V4l2FdUserPtr), typeid(TPL0401B),
     typeid(ZynqmpTemp)},
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
  const auto sensor = series->CreateCmosSensor();
  EXPECT_EQ(dynamic_cast<IMX273*>(sensor.get()) != nullptr, GetParam().has_sensor);
  EXPECT_EQ(sensor != nullptr, GetParam().has_sensor);
}

TEST_P(DevicesOf, AreAllInTheManagerAfterInit) {
  DeviceManager& devices = *DeviceManagerHolder::Instance();
  ASSERT_TRUE(devices.Init());
  ExpectIs(devices.fpga_logic_, GetParam().fpga);
  ExpectIs(devices.v4l2_buf_, GetParam().strip_buffers);
  ExpectIs(devices.digital_pot_, GetParam().potentiometer);
  ExpectIs(devices.temperature_, GetParam().temperature);
  EXPECT_EQ(devices.cmos_sensor_ != nullptr, GetParam().has_sensor);
  ExpectIs(devices.da_chip_, typeid(DaChip));
  ExpectIs(devices.laser_, typeid(Laser));
  ExpectIs(devices.range_led_, typeid(RangeLed));
  ExpectIs(devices.laser_led_, typeid(LaserLed));
  EXPECT_EQ(devices.model_, GetParam().model);
}

INSTANTIATE_TEST_SUITE_P(DeviceManager, DevicesOf, ::testing::ValuesIn(kProducts),
                         [](const auto& row) { return std::string(row.param.model); });

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

// Takes its time, so that everybody comes while the first is being made.
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
