#pragma once

// A capture device of each kind on the virtual board.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Devices/capture/V4l2Fd.h"
#include "Devices/capture/V4l2FdUserPtr.h"
#include "Devices/capture/V4l2FdUserPtrSync.h"
#include "support/BoardFixture.h"
#include "support/FrameSource.h"
#include "support/LoggedLines.h"

namespace tessaline_test {

using VeltranoSDK::DevFOps::V4l2Base;
using VeltranoSDK::DevFOps::V4l2Fd;
using VeltranoSDK::DevFOps::V4l2FdUserPtr;
using VeltranoSDK::DevFOps::V4l2FdUserPtrSync;

inline constexpr unsigned kWidth = 1024;
inline constexpr unsigned kHeight = 640;
inline constexpr std::size_t kBytes = std::size_t{kWidth} * kHeight;

enum class Flavour { kFd, kUserPtr, kUserPtrSync };

struct FlavourCase {
  Flavour flavour;
  const char* file;
};

inline void PrintTo(const FlavourCase& flavour, std::ostream* out) { *out << flavour.file; }

// The number of bytes that are not zero.
inline std::size_t NonZero(const std::byte* data, std::size_t size) {
  return size - static_cast<std::size_t>(std::count(data, data + size, std::byte{0}));
}

class V4l2 : public BoardFixture {
 protected:
  V4l2() : BoardFixture("K3610") {}

  void SetUp() override {
    BoardFixture::SetUp();
    FrameSource::Prepare();
    FrameSource::Route(FrameSource::kStrips);
    tessaline_board_transcript_clear();
  }

  // The FPGA must release the memory before it is freed.
  void TearDown() override {
    for (const auto& device : devices_) {
      device->StreamOff();
      device->Close();
    }
    BoardFixture::TearDown();
  }

  template <typename Device>
  Device& Add() {
    auto device = std::make_unique<Device>();
    Device& plain = *device;
    devices_.push_back(std::move(device));
    return plain;
  }

  static void Start(V4l2Base& device, unsigned count = 4) {
    ASSERT_TRUE(device.Open("/dev/video1"));
    ASSERT_TRUE(device.SetFmt(kWidth, kHeight));
    ASSERT_TRUE(device.ReqBufs(count));
    ASSERT_TRUE(device.StreamOn());
  }

  LoggedLines log{TESSALINE_LOG_ERROR};

 private:
  std::vector<std::unique_ptr<V4l2Base>> devices_;
};

class V4l2Flavour : public V4l2, public testing::WithParamInterface<FlavourCase> {
 protected:
  std::string Logged(const std::string& text) const {
    return std::string("ERROR Devices/") + GetParam().file + ": " + text;
  }

  V4l2Base* const device = Make();

 private:
  V4l2Base* Make() {
    switch (GetParam().flavour) {
      case Flavour::kUserPtr:
        return &Add<V4l2FdUserPtr>();
      case Flavour::kUserPtrSync:
        return &Add<V4l2FdUserPtrSync>();
      default:
        return &Add<V4l2Fd>();
    }
  }
};

inline auto AllFlavours() {
  return testing::Values(FlavourCase{Flavour::kFd, "V4l2Fd.cpp"},
                         FlavourCase{Flavour::kUserPtr, "V4l2FdUserPtr.cpp"},
                         FlavourCase{Flavour::kUserPtrSync, "V4l2FdUserPtrSync.cpp"});
}

}  // namespace tessaline_test
