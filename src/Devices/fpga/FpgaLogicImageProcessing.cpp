// The image-processing pipeline of FpgaLogic. Every method returns the result of
// its write, and none leaves a trace line.
#include "Devices/fpga/FpgaLogic.h"

namespace VeltranoSDK {

namespace {

// BRI_THRES loses whatever stands above its two fields on an update.
constexpr unsigned int kLost = ~(fpga::kBrightnessMax.Mask() | fpga::kBrightnessMin.Mask());

}  // namespace

unsigned int FpgaLogic::SetISPHeight(unsigned int height) {
  return Update(fpga::kIspHeight, height);
}

unsigned int FpgaLogic::SetBinEnable(unsigned int enable) {
  return Merge(fpga::kIspBinning, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetHotpixelEnable(unsigned int enable) {
  return Merge(fpga::kIspHotPixel, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetImgFlippingEnable(unsigned int enable) {
  return Merge(fpga::kIspFlipping, enable & 1u, kLostByIspControl);
}

unsigned int FpgaLogic::SetObOffset(unsigned int offset) { return Write(fpga::OB_OFFSET, offset); }

unsigned int FpgaLogic::SetBriThresMax(unsigned int threshold) {
  return Merge(fpga::kBrightnessMax, threshold, kLost);
}

unsigned int FpgaLogic::SetBriThresMin(unsigned int threshold) {
  return Merge(fpga::kBrightnessMin, threshold, kLost);
}

// The enhancement and erosion controls do not cut a value to its field: one that
// is too wide runs into the next.

unsigned int FpgaLogic::SetEnhanceEnable(unsigned int enable) {
  return Merge(fpga::kEnhanceEnable, enable);
}

unsigned int FpgaLogic::SetEnhanceThresMax(unsigned int threshold) {
  return Merge(fpga::kEnhanceMax, threshold);
}

unsigned int FpgaLogic::SetEnhanceThresMin(unsigned int threshold) {
  return Merge(fpga::kEnhanceMin, threshold);
}

unsigned int FpgaLogic::SetEnhanceThresNum(unsigned int count) {
  return Merge(fpga::kEnhanceNum, count);
}

unsigned int FpgaLogic::SetEnhanceGain(unsigned int gain) {
  return Merge(fpga::kEnhanceGain, gain);
}

unsigned int FpgaLogic::SetMedianFilterEnable(unsigned int enable) {
  return Update(fpga::kMedianEnable, enable);
}

unsigned int FpgaLogic::SetErosionFilterEnable(unsigned int enable) {
  return Merge(fpga::kErosionEnable, enable);
}

unsigned int FpgaLogic::SetErosionThresMax(unsigned int threshold) {
  return Merge(fpga::kErosionMax, threshold);
}

unsigned int FpgaLogic::SetErosionThresMin(unsigned int threshold) {
  return Merge(fpga::kErosionMin, threshold);
}

unsigned int FpgaLogic::SetErosionThresNum(unsigned int count) {
  return Merge(fpga::kErosionNum, count);
}

unsigned int FpgaLogic::SetErosionFilterStrategy(unsigned int strategy) {
  return Merge(fpga::kErosionStrategy, strategy);
}

unsigned int FpgaLogic::SetFpgaContinuous(unsigned int continuous) {
  return Write(fpga::FPGA_CONTINUOUS, continuous);
}

}  // namespace VeltranoSDK
