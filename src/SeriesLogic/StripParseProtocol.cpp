#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

unsigned int StripParseProtocol::StripCountNumberOfBytes() { return 8; }

unsigned int StripParseProtocol::DataNumberOfBytes() { return 8; }

void StripParseProtocol::SetBrFlag(unsigned int /*flag*/) {}

void StripParseProtocol::SetCFlag(unsigned int /*flag*/) {}

unsigned int StripParseProtocol22ch16Arm::DataNumberOfBytes() { return 2; }

unsigned int StripParseProtocol25Arm::DataNumberOfBytes() { return data_number_of_bytes_; }

void StripParseProtocol25Arm::SetBrFlag(unsigned int flag) {
  br_flag_ = flag != 0;
  UpdateDataNumberOfBytes();
}

void StripParseProtocol25Arm::SetCFlag(unsigned int flag) {
  c_flag_ = flag != 0;
  UpdateDataNumberOfBytes();
}

void StripParseProtocol25Arm::UpdateDataNumberOfBytes() {
  data_number_of_bytes_ = c_flag_ ? 8 : br_flag_ ? 4 : 2;
}

}  // namespace VeltranoSDK
