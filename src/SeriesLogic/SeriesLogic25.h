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

}  // namespace VeltranoSDK
