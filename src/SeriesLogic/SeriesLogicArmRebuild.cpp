#include "SeriesLogic/SeriesLogicArmRebuild.h"

#include "SeriesLogic/StripParseProtocol25Arm.h"

namespace VeltranoSDK {

SeriesLogicArmRebuild::SeriesLogicArmRebuild() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol25Arm>();
}

std::uint8_t SeriesLogicArmRebuild::GetStripPointDataByteCount() {
  return arm_strip_point_data_byte_count_;
}

}  // namespace VeltranoSDK
