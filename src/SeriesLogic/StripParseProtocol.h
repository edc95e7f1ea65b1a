#pragma once

#include <atomic>
#include <cstdint>

namespace VeltranoSDK {

// How the FPGA packs strip buffers: the width of the strip count behind the strips, and the bytes
// per point.
class StripParseProtocol {
 public:
  virtual ~StripParseProtocol() = default;
  virtual unsigned int StripCountNumberOfBytes();
  virtual unsigned int DataNumberOfBytes();
  // The FPGA's brightness and continuous output flags; most layouts do not depend on them.
  virtual void SetBrFlag(unsigned int flag);
  virtual void SetCFlag(unsigned int flag);
};

// Reconstruction on the processor: the FPGA sends only the 2-byte line position.
class StripParseProtocol22ch16Arm : public StripParseProtocol {
 public:
  unsigned int DataNumberOfBytes() override;
};

// Reconstruction on the processor. A point grows with what the FPGA adds to the line position: 2
// bytes, 4 with brightness, 8 in continuous output.
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
