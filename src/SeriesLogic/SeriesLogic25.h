#pragma once

#include <cstdint>

#include "SeriesLogic/SeriesLogic.h"

namespace VeltranoSDK {

// e2v Flash 4K on the ZynqMP board.
class SeriesLogic25 : public SeriesLogic {
 public:
  SeriesLogic25();
  float GetRisingEdgeThresholdCoeff() override;
  unsigned int GetCallbackLostCount() override;
  bool ResetCallbackLostCount() override;
  virtual std::uint8_t GetStripPointDataByteCount();

 private:
  std::uint8_t strip_point_data_byte_count_ = 8;
};

// Series 25 with reconstruction on the processor.
class SeriesLogicArmRebuild : public SeriesLogic25 {
 public:
  SeriesLogicArmRebuild();
  std::uint8_t GetStripPointDataByteCount() override;

 private:
  std::uint8_t arm_strip_point_data_byte_count_ = 4;
};

}  // namespace VeltranoSDK
