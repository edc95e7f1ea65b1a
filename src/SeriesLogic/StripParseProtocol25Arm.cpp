#include "SeriesLogic/StripParseProtocol25Arm.h"

namespace VeltranoSDK {

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
