#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

unsigned int StripParseProtocol::StripCountNumberOfBytes() { return 8; }

unsigned int StripParseProtocol::DataNumberOfBytes() { return 8; }

void StripParseProtocol::SetBrFlag(unsigned int /*flag*/) {}

void StripParseProtocol::SetCFlag(unsigned int /*flag*/) {}

}  // namespace VeltranoSDK
