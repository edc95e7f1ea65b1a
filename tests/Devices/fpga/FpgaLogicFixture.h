#pragma once

#include <errno.h>
#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "DeviceManager.h"
#include "Devices/fpga/FpgaLogic.h"
#include "Devices/fpga/FpgaLogicFactory.h"
#include "Devices/sensor/CmosSensor.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "tessaline/log.h"

namespace tessaline_test {

using VeltranoSDK::CmosSensor;
using VeltranoSDK::FpgaLogic;

// An image sensor without a bus: FpgaLogic asks it for its model, its resolution
// and its camera delay.
class SensorWithoutBus : public CmosSensor {
 public:
  static constexpr unsigned int kCameraDelay = 0x12345;

  explicit SensorWithoutBus(VeltranoSDK::CmosSensorModel model) : CmosSensor(model, {4200, 1024}) {}

  bool RegisterInitialize(VeltranoSDK::ReadoutDriveMode) override { return true; }
  bool SetGain(unsigned int) override { return true; }
  unsigned int GetSensorTemp() override { return 0; }
  unsigned int GetSensorVer(unsigned int) override { return 0; }
  unsigned int GetCameraDelay() override { return kCameraDelay; }
  float GetExposureTimeUnit() override { return 1.0f; }

 protected:
  bool SetROIImpl(unsigned int, unsigned int, unsigned int, unsigned int) override { return true; }
  bool SetReadoutDriveModeImpl(VeltranoSDK::ReadoutDriveMode) override { return true; }
  bool SetReadoutDriveDirectionImpl(VeltranoSDK::ReadoutDriveDirection) override { return true; }
};

// A process has one series, so every program with this fixture has one board.
class FpgaLogicFixture : public BoardFixture {
 protected:
  FpgaLogicFixture(const char* model, VeltranoSDK::SeriesNumber series)
      : BoardFixture(model), series_(series) {}

  void SetUp() override {
    BoardFixture::SetUp();
    log_set_level(TESSALINE_LOG_ERROR);
    ASSERT_TRUE(VeltranoSDK::SeriesLogicFactory::InitSeriesLogicBySeries(series_));
    logic_ = VeltranoSDK::FpgaLogicFactory::CreateFpgaLogicBySeries(series_);
    CarrySensor(VeltranoSDK::kIMX273);
  }

  void TearDown() override {
    VeltranoSDK::DeviceManagerHolder::Instance()->cmos_sensor_.reset();
    BoardFixture::TearDown();
  }

  static void CarrySensor(VeltranoSDK::CmosSensorModel model) {
    VeltranoSDK::DeviceManagerHolder::Instance()->cmos_sensor_ =
        std::make_shared<SensorWithoutBus>(model);
  }

  FpgaLogic& logic() { return *logic_; }

 private:
  VeltranoSDK::SeriesNumber series_;
  std::shared_ptr<FpgaLogic> logic_;
};

class ZynqFpga : public FpgaLogicFixture {
 protected:
  ZynqFpga() : FpgaLogicFixture("K3610", VeltranoSDK::kSeries21) {}
};

inline constexpr std::uint64_t kAllOnes = 0xFFFFFFFFu;
inline constexpr std::uint64_t kAllOnes64 = ~std::uint64_t{0};

// One rule: what stands in the registers, one call, and what then crosses the
// boundary. true is 1.
struct Rule {
  std::string name;
  std::vector<std::pair<fpga::Register, std::uint32_t>> given = {};
  std::function<std::uint64_t(FpgaLogic&)> call;
  std::uint64_t result = 1;
  std::vector<std::string> steps = {};
  std::string printed = {};
  VeltranoSDK::CmosSensorModel sensor = VeltranoSDK::kIMX273;
  int failing_access = -1;  // the one that cannot reach the FPGA, counted from 0
};

inline std::ostream& operator<<(std::ostream& out, const Rule& rule) { return out << rule.name; }

class FpgaRule : public ZynqFpga, public ::testing::WithParamInterface<Rule> {
 public:
  static std::string Name(const ::testing::TestParamInfo<Rule>& info) { return info.param.name; }

 protected:
  void Check(const Rule& rule) {
    for (const auto& [reg, value] : rule.given) Set(reg, value);
    CarrySensor(rule.sensor);
    if (rule.failing_access >= 0) {
      tessaline_board_fault("fpga", "mmap", static_cast<unsigned>(rule.failing_access), 1, EIO);
    }
    const std::uint64_t result = rule.call(logic());
    const std::string printed = Printed();
    EXPECT_EQ(result, rule.result);
    EXPECT_EQ(printed, rule.printed);
    EXPECT_THAT(Steps(), ::testing::ElementsAreArray(rule.steps));
  }
};

}  // namespace tessaline_test
