#pragma once

#include <atomic>
#include <cstdint>

#include "SeriesLogic/StripParseProtocol.h"

namespace VeltranoSDK {

// Reconstruction on the processor, with a point that grows with what the FPGA
// adds to the line position: 2 bytes, 4 with brightness, 8 in continuous output.
class StripParseProtocol25Arm : public StripParseProtocol {
 public:
  unsigned int DataNumberOfBytes() override;
  void SetBrFlag(unsigned int flag) override;
  void SetCFlag(unsigned int flag) override;

 private:
  void UpdateDataNumberOfBytes();

  // Written by the exported setters while the strip thread reads.
  std::atomic<std::uint8_t> data_number_of_bytes_ = 2;
  std::atomic<bool> br_flag_ = false;
  std::atomic<bool> c_flag_ = false;
};

}  // namespace VeltranoSDK
