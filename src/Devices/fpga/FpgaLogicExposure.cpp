// Exposure times, exposure count and high dynamic range of FpgaLogic.
#include <array>
#include <cmath>
#include <limits>

#include "Devices/fpga/FpgaLogic.h"
#include "Devices/sensor/CmosSensor.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

// Indexed by ExposureIndex.
constexpr std::array<fpga::Register, kMaxExposures> kExposureTimes{
    fpga::kReg.EXP_TIME_1, fpga::kReg.EXP_TIME_2, fpga::kReg.EXP_TIME_3, fpga::kReg.EXP_TIME_4,
    fpga::kReg.EXP_TIME_5};

constexpr unsigned int kLaserLineExposureDelta = 1;

constexpr unsigned int kHdrGapTicks = 50;

// Truncates, and clamps to the range. NaN becomes 0.
unsigned int ToUnsigned(double value) {
  constexpr unsigned int kMost = std::numeric_limits<unsigned int>::max();
  if (!(value > 0)) return 0;
  return value < kMost ? static_cast<unsigned int>(value) : kMost;
}

bool IsExposureCount(unsigned int count) { return count >= 1 && count <= kMaxExposures; }

}  // namespace

bool FpgaLogic::SetExpTime(ExposureIndex index, unsigned int time, float unit) {
  Trace(__func__);
  if (index >= kExposureTimes.size()) {
    // The words around the five slots are other controls.
    LogError()("SetExpTime: there is no exposure slot %u, slots are 0 to 4", unsigned{index});
    return false;
  }
  exposure_times_[index] = time;
  Write(kExposureTimes[index], ToUnsigned(std::ceil(static_cast<float>(time) / unit)));
  return true;
}

unsigned int FpgaLogic::GetExpTime(ExposureIndex index) const {
  Trace(__func__);
  return StoredExposureTime(index);
}

unsigned int FpgaLogic::StoredExposureTime(ExposureIndex index) const {
  return index < exposure_times_.size() ? exposure_times_[index].Get() : 0;
}

bool FpgaLogic::SetExpDelay() {
  Trace(__func__);
  if (const auto sensor = Sensor()) Write(fpga::kReg.EXP_DELAY, sensor->GetCameraDelay());
  return false;
}

unsigned int FpgaLogic::GetExpDelay() const {
  Trace(__func__);
  return Read(fpga::kField.exposure_delay);
}

bool FpgaLogic::SetExposureNum(unsigned int count) {
  Trace(__func__);
  return IsExposureCount(count) && Update(fpga::kField.exposure_count, count) != kFailed;
}

bool FpgaLogic::SetExposureNumDelta(unsigned int delta) {
  Trace(__func__);
  return Update(fpga::kField.exposure_delta, delta) != kFailed;
}

bool FpgaLogic::SetExpNum(unsigned int count) {
  Trace(__func__);
  if (!IsExposureCount(count)) return false;
  unsigned int mask = fpga::kField.exposure_count.Mask();
  unsigned int bits = fpga::kField.exposure_count.In(0, count);
  if (collect_mode_ == kCollectLaserLine) {
    mask |= fpga::kField.exposure_delta.Mask();
    bits = fpga::kField.exposure_delta.In(bits, kLaserLineExposureDelta);
  }
  Update(fpga::kReg.EXPOSURE_NUM, mask, bits);
  return true;
}

unsigned int FpgaLogic::GetExpNum() const {
  Trace(__func__);
  return Read(fpga::kField.exposure_count);
}

unsigned int FpgaLogic::SetHDREnable(unsigned int enable) {
  Trace(__func__);
  return Update(fpga::kField.hdr_enable, enable);
}

unsigned int FpgaLogic::GetHDREnable() const {
  Trace(__func__);
  return Read(fpga::kField.hdr_enable);
}

unsigned int FpgaLogic::SetHDRParam(double first, double second, double /*third*/) {
  Trace(__func__);
  const unsigned int exposure = StoredExposureTime(kExposure1);
  const auto ticks = [exposure](double fraction) {
    return ToUnsigned(exposure * fraction * fpga::kTicksPerMicrosecond);
  };
  const unsigned int segment1 = ticks(first);
  const unsigned int segment2 = ticks(second);
  const unsigned int whole = exposure * fpga::kTicksPerMicrosecond;

  Update(fpga::kField.hdr_segment1, segment1);
  Write(fpga::kReg.HDR_SEG2, segment2);
  Write(fpga::kReg.HDR_SEG3, whole - (segment1 + segment2));
  Write(fpga::kReg.HDR_GAP, kHdrGapTicks);
  // There are two gaps between the three segments.
  return Write(fpga::kReg.HDR_TOTAL, whole - 2 * kHdrGapTicks);
}

}  // namespace VeltranoSDK
