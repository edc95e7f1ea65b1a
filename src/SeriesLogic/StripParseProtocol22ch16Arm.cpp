#include "SeriesLogic/StripParseProtocol22ch16Arm.h"

namespace VeltranoSDK {

unsigned int StripParseProtocol22ch16Arm::DataNumberOfBytes() { return 2; }

}  // namespace VeltranoSDK
