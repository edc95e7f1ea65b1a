#pragma once

namespace VeltranoSDK {

// How the FPGA packs strip buffers: how wide the strip count behind the strips
// is, and how many bytes one point takes.
class StripParseProtocol {
 public:
  virtual ~StripParseProtocol() = default;
  virtual unsigned int StripCountNumberOfBytes();
  virtual unsigned int DataNumberOfBytes();
  // The FPGA's brightness and continuous output flags; most layouts do not
  // depend on them.
  virtual void SetBrFlag(unsigned int flag);
  virtual void SetCFlag(unsigned int flag);
};

}  // namespace VeltranoSDK
