#include "SeriesLogic/SeriesLogic22ch16Arm.h"

#include "SeriesLogic/StripParseProtocol22ch16Arm.h"

namespace VeltranoSDK {

SeriesLogic22ch16Arm::SeriesLogic22ch16Arm() {
  strip_parse_protocol_ = std::make_shared<StripParseProtocol22ch16Arm>();
}

}  // namespace VeltranoSDK
