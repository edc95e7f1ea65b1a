// The image-processing pipeline of FpgaLogic. Every method returns the result of its write; none
// logs a trace line.
#include "Devices/fpga/FpgaLogic.h"

namespace VeltranoSDK {

namespace {

// Every update of BRI_THRES clears the bits above its two fields.
constexpr unsigned int kLost =
    ~(fpga::kField.brightness_max.Mask() | fpga::kField.brightness_min.Mask());

}  // namespace

unsigned int FpgaLogic::SetISPHeight(unsigned int height) {
  return Update(fpga::kField.isp_height, height);
}

unsigned int FpgaLogic::SetBinEnable(unsigned int enable) {
  return Merge(fpga::kField.isp_binning, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetHotpixelEnable(unsigned int enable) {
  return Merge(fpga::kField.isp_hot_pixel, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetImgFlippingEnable(unsigned int enable) {
  return Merge(fpga::kField.isp_flipping, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetObOffset(unsigned int offset) {
  return Write(fpga::kReg.OB_OFFSET, offset);
}

unsigned int FpgaLogic::SetBriThresMax(unsigned int threshold) {
  return Merge(fpga::kField.brightness_max, threshold, kLost);
}

unsigned int FpgaLogic::SetBriThresMin(unsigned int threshold) {
  return Merge(fpga::kField.brightness_min, threshold, kLost);
}

// The enhancement and erosion controls do not mask a value: one that is too wide overflows into the
// next field.

unsigned int FpgaLogic::SetEnhanceEnable(unsigned int enable) {
  return Merge(fpga::kField.enhance_enable, enable);
}

unsigned int FpgaLogic::SetEnhanceThresMax(unsigned int threshold) {
  return Merge(fpga::kField.enhance_max, threshold);
}

unsigned int FpgaLogic::SetEnhanceThresMin(unsigned int threshold) {
  return Merge(fpga::kField.enhance_min, threshold);
}

unsigned int FpgaLogic::SetEnhanceThresNum(unsigned int count) {
  return Merge(fpga::kField.enhance_num, count);
}

unsigned int FpgaLogic::SetEnhanceGain(unsigned int gain) {
  return Merge(fpga::kField.enhance_gain, gain);
}

unsigned int FpgaLogic::SetMedianFilterEnable(unsigned int enable) {
  return Update(fpga::kField.median_enable, enable);
}

unsigned int FpgaLogic::SetErosionFilterEnable(unsigned int enable) {
  return Merge(fpga::kField.erosion_enable, enable);
}

unsigned int FpgaLogic::SetErosionThresMax(unsigned int threshold) {
  return Merge(fpga::kField.erosion_max, threshold);
}

unsigned int FpgaLogic::SetErosionThresMin(unsigned int threshold) {
  return Merge(fpga::kField.erosion_min, threshold);
}

unsigned int FpgaLogic::SetErosionThresNum(unsigned int count) {
  return Merge(fpga::kField.erosion_num, count);
}

unsigned int FpgaLogic::SetErosionFilterStrategy(unsigned int strategy) {
  return Merge(fpga::kField.erosion_strategy, strategy);
}

unsigned int FpgaLogic::SetFpgaContinuous(unsigned int continuous) {
  return Write(fpga::kReg.FPGA_CONTINUOUS, continuous);
}

}  // namespace VeltranoSDK
