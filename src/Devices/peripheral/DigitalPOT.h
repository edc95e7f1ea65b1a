#pragma once

namespace VeltranoSDK {

// The potentiometer that sets the laser's optical power.
class DigitalPOT {
 public:
  DigitalPOT() = default;
  virtual ~DigitalPOT() = default;
  DigitalPOT(const DigitalPOT&) = delete;
  DigitalPOT& operator=(const DigitalPOT&) = delete;

  // Steps of the wiper.
  virtual unsigned int GetResolution() = 0;
  // 0 to 100 percent.
  virtual bool SetPosition(float percent) = 0;

 protected:
  // Converts percent to a step, truncated; 0 for negative numbers and NaN.
  static unsigned int StepOf(float percent, unsigned int resolution);
};

}  // namespace VeltranoSDK
