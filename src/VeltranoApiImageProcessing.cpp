#include "Devices/fpga/FpgaLogic.h"
#include "VeltranoApiCall.h"
#include "tessaline/image_processing.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

}  // namespace

// These return the result of the register write: 0, or all ones, which is -1.
extern "C" {

int SetBinEnable(unsigned int enable) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetBinEnable, enable);
}

int SetHotpixelEnable(unsigned int enable) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetHotpixelEnable, enable);
}

int SetObOffset(unsigned int offset) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetObOffset, offset);
}

int SetBriThresMax(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetBriThresMax, threshold);
}

int SetBriThresMin(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetBriThresMin, threshold);
}

int SetEnhanceEnable(unsigned int enable) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetEnhanceEnable, enable);
}

int SetEnhanceThresMax(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetEnhanceThresMax, threshold);
}

int SetEnhanceThresMin(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetEnhanceThresMin, threshold);
}

int SetEnhanceThresNum(unsigned int count) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetEnhanceThresNum, count);
}

int SetEnhanceGain(unsigned int gain) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetEnhanceGain, gain);
}

int SetMedianFilterEnable(unsigned int enable) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetMedianFilterEnable, enable);
}

int SetErosionFilterEnable(unsigned int enable) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetErosionFilterEnable, enable);
}

int SetErosionThresMax(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetErosionThresMax, threshold);
}

int SetErosionThresMin(unsigned int threshold) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetErosionThresMin, threshold);
}

int SetErosionThresNum(unsigned int count) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetErosionThresNum, count);
}

int SetErosionFilterStrategy(unsigned int strategy) {
  return Forward<int>(__func__, kFpga, &FpgaLogic::SetErosionFilterStrategy, strategy);
}

}  // extern "C"
