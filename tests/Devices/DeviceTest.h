#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "DeviceManager.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "support/BoardFixture.h"
#include "tessaline/log.h"

namespace VeltranoSDK {

using Lines = std::vector<std::string>;

inline Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A write to the FPGA in a sensor's programming: "TRI_SPACING = 0x00000005".
inline std::string Fpga(const fpga::Register& reg, unsigned value) {
  char text[16];
  snprintf(text, sizeof text, " = 0x%08x", value);
  return std::string(reg.name.View()) + text;
}
inline std::string Timing(unsigned value) { return Fpga(fpga::kReg.CMOS_TIMING_CTRL, value); }

// A transaction on an I2C bus in the transcript, bytes in hexadecimal: I2cWrite(0x36, "30 0b 5a"),
// I2cRead(0x36, "30 0b", "c3").
inline std::string I2cClient(unsigned address) {
  constexpr char kDigits[] = "0123456789abcdef";
  return std::string("0x") + kDigits[address >> 4 & 0xF] + kDigits[address & 0xF] + ' ';
}
inline std::string I2cWrite(unsigned address, const std::string& bytes) {
  return "I2C_RDWR w " + I2cClient(address) + bytes;
}
inline std::string I2cRead(unsigned address, const std::string& bytes, const std::string& read) {
  return I2cWrite(address, bytes) + "; r " + I2cClient(address) + read;
}

// A board with its device objects as start-up makes them, before anything is programmed. One series
// per process: the series logic is final.
class DeviceTest : public tessaline_test::BoardFixture {
 protected:
  explicit DeviceTest(const char* model = "K3610", SeriesNumber series = kSeries21)
      : BoardFixture(model), board_model_(model), series_(series) {}

  void SetUp() override {
    BoardFixture::SetUp();
    log_set_level(TESSALINE_LOG_ERROR);
    ASSERT_TRUE(SeriesLogicFactory::InitSeriesLogicBySeries(series_));
    BuildDevices();
  }

  // The board after another power-up, without faults, and new device objects.
  void PowerUp() {
    tessaline_board_clear_faults();
    ASSERT_EQ(tessaline_board_select(board_model_), 0);
    BuildDevices();
  }

  static DeviceManager& devices() { return *DeviceManagerHolder::Instance(); }

  using BoardFixture::Printed;

  // The text that a call prints on standard output or standard error.
  template <typename Call>
  std::string Printed(Call call) {
    BoardFixture::Printed();
    call();
    return BoardFixture::Printed();
  }

  template <typename Call>
  static std::string PrintedAsError(Call call) {
    ::testing::internal::CaptureStderr();
    call();
    return ::testing::internal::GetCapturedStderr();
  }

  // The events of one device, without its name.
  static Lines EventsOf(const std::string& device) {
    Lines events;
    for (const std::string& event : Events()) {
      if (event.starts_with(device + ' ')) events.push_back(event.substr(device.size() + 1));
    }
    return events;
  }

  // Sizes requested of the image device, "640x480".
  static Lines FormatsAsked() {
    const std::string request = "VIDIOC_TRY_FMT ";
    Lines sizes;
    for (const std::string& event : EventsOf("video0")) {
      if (!event.starts_with(request)) continue;
      sizes.push_back(
          event.substr(request.size(), event.find(' ', request.size()) - request.size()));
    }
    return sizes;
  }

  // Those of `steps` that occurred, in order: registers written, ioctls, "sleep 100".
  static Lines OrderOf(const Lines& steps) {
    Lines order;
    for (const std::string& event : Events()) {
      if (event.starts_with("fpga read ")) continue;
      const auto step = std::ranges::find_if(steps, [&](const std::string& name) {
        return event == name || event.find(' ' + name + ' ') != std::string::npos;
      });
      if (step != steps.end()) order.push_back(*step);
    }
    return order;
  }

 private:
  void BuildDevices() {
    ASSERT_TRUE(devices().Init());
    tessaline_board_transcript_clear();
  }

  const char* board_model_;
  SeriesNumber series_;
};

}  // namespace VeltranoSDK
