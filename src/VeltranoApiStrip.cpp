#include <limits>

#include "Devices/fpga/FpgaLogic.h"
#include "Runnable/CaptureStatistics.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "SeriesLogic/StripParseProtocol.h"
#include "VeltranoApiCall.h"
#include "tessaline/strip.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

// An FPGA exists only where a series was selected, so whoever has the one finds the other.
SeriesLogic& Series() { return *SeriesLogicFactory::GetSeriesLogicInstance(); }

// Calculates in single precision and truncates.
unsigned int Scale(unsigned int value, float coefficient) {
  const float scaled = static_cast<float>(value) * coefficient;
  constexpr float kEnd = 4294967296.0F;  // the first number too large for the result
  return scaled < kEnd ? static_cast<unsigned int>(scaled)
                       : std::numeric_limits<unsigned int>::max();
}

}  // namespace

extern "C" {

int SetCollectMode(unsigned int mode) {
  return Call<int>(__func__, kFpga, [mode](FpgaLogic& fpga) {
    // Both streams share the FPGA's frame count: a frame that goes to one is missing in the other.
    if (FpgaLogic::IsCollectMode(static_cast<CollectMode>(mode))) {
      const auto* const runnables = RunnableObjectManagerHolder::Instance();
      runnables->video_->statistics().ExpectOtherIds();
      runnables->strip_->statistics().ExpectOtherIds();
    }
    if (!fpga.SetCollectMode(static_cast<CollectMode>(mode))) return false;
    Series().Notify(kCollectModeChanged);
    if (mode == kCollectImage) Series().Notify(kExposureConfigured);
    return true;
  });
}

unsigned int GetCollectMode(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::collect_mode);
}

int SetStripDataMode(unsigned int mode) {
  return Call<int>(__func__, kFpga, [mode](FpgaLogic& fpga) {
    if (!fpga.SetStripDataMode(static_cast<StripSelectMode>(mode))) return false;
    Series().Notify(kStripDataModeChanged);
    return true;
  });
}

unsigned int GetStripDataMode(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetStripDataMode);
}

int SetStripWriteMemMode(unsigned int strategy) {
  return Call<int>(__func__, kFpga, [strategy](FpgaLogic& fpga) {
    if (!fpga.SetStripWriteMemMode(static_cast<SampleStrategy>(strategy))) return false;
    RunnableObjectManagerHolder::Instance()->strip_->SetWriteMemMode(strategy);
    return true;
  });
}

int SetRisThresholdValue(unsigned int threshold) {
  return Call<int>(__func__, kFpga, [threshold](FpgaLogic& fpga) {
    return fpga.SetRisThresholdValue(Scale(threshold, Series().GetRisingEdgeThresholdCoeff()));
  });
}

unsigned int GetRisThresholdValue(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetRisThresholdValue);
}

int SetStripWidthMin(unsigned int width) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetStripWidthMin, width);
}

unsigned int GetStripWidthMin(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetStripWidthMin);
}

int SetStripWidthMax(unsigned int width) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetStripWidthMax, width);
}

unsigned int GetStripWidthMax(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetStripWidthMax);
}

int SetStripRebuildValue(int32_t* values) {
  const Entry entry(__func__);
  if (values == nullptr) {
    entry.Error("the coefficients are a null pointer");
    return -1;
  }
  return Forward<int>(entry, kFpga, &FpgaLogic::SetStripRebuildValue, values);
}

int SetMeasuringRange(unsigned int start, unsigned int end) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetMeasuringRange, start, end);
}

int SetRoiOffset(unsigned int x, unsigned int y) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetRoiOffset, x, y);
}

int SetSampleLightLineParam(int32_t start_x, int32_t step_x, int32_t count_x, int32_t fourth,
                            int32_t fifth) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetSampleLightLineParam, start_x, step_x,
                      count_x, fourth, fifth);
}

void SetBrFlag(unsigned int flag) {
  Call<void>(__func__, kFpga, [flag](FpgaLogic& fpga) {
    fpga.SetBrFlag(flag);
    Series().strip_parse_protocol()->SetBrFlag(flag);
  });
}

void SetContinuousFlag(unsigned int flag) {
  Call<void>(__func__, kFpga, [flag](FpgaLogic& fpga) {
    fpga.SetContinuousFlag(flag);
    Series().strip_parse_protocol()->SetCFlag(flag);
  });
}

int ResetFrameID(void) {
  return Call<int>(__func__, kFpga, [](FpgaLogic& fpga) {
    if (!fpga.ResetFrameID()) return false;
    RunnableObjectManagerHolder::Instance()->strip_->StripBufClear();
    RunnableObjectManagerHolder::Instance()->video_->VideoBufClear();
    return true;
  });
}

unsigned int GetCallbackLostNum(void) {
  return Forward<unsigned int>(__func__, kFpga, &FpgaLogic::GetCallbackLostNum);
}

int ResetCallbackLostNum(void) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::ResetCallbackLostNum);
}

uint64_t GetStripReleaseNum(void) {
  return Forward<uint64_t>(__func__, kStrip, &CaptureStripStream::StripReleaseCount);
}

int ResetStripReleaseNum(void) {
  return Forward<int>(__func__, kStrip, &CaptureStripStream::ResetStripReleaseCount);
}

int QV4l2Buf(unsigned int index) {
  const Entry entry(__func__);
  // Without the strip device the strip thread has no buffers either.
  if (Fetch(entry, &DeviceManager::v4l2_buf_) == nullptr) return Failure<int>();
  return Forward<int>(entry, kStrip, &CaptureStripStream::QV4l2Buf, index);
}

}  // extern "C"
