#pragma once

#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

// Reconstruction on the processor: the FPGA sends only the 2-byte line position.
class StripParseProtocol22ch16Arm : public StripParseProtocol {
 public:
  unsigned int DataNumberOfBytes() override;
};

}  // namespace VeltranoSDK
