#pragma once

#include "SeriesLogic/SeriesLogic25.h"

namespace VeltranoSDK {

// Series 25 with reconstruction on the processor.
class SeriesLogicArmRebuild : public SeriesLogic25 {
 public:
  SeriesLogicArmRebuild();
  std::uint8_t GetStripPointDataByteCount() override;

 private:
  std::uint8_t arm_strip_point_data_byte_count_ = 4;
};

}  // namespace VeltranoSDK
