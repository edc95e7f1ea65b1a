#include "SeriesLogic/SeriesLogic24ArmRebuild.h"

#include "SeriesLogic/StripParseProtocol25Arm.h"

namespace VeltranoSDK {

SeriesLogic24ArmRebuild::SeriesLogic24ArmRebuild() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol25Arm>();
}

}  // namespace VeltranoSDK
