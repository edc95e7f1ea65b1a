#pragma once

#include <string>

namespace VeltranoSDK {

// The processor's temperature as its system monitor reports it through IIO.
class XSysMonTemperatureOnChip {
 public:
  virtual ~XSysMonTemperatureOnChip() = default;

  // Degrees Celsius. Without the IIO device: an ERROR in the log and the value of a
  // raw reading of 0, which is below -270. Threads: any.
  virtual float GetTemp() = 0;

 protected:
  explicit XSysMonTemperatureOnChip(std::string path);

  // raw x gain / steps + offset
  struct Conversion {
    double gain;
    double steps;  // a power of two
    double offset;
  };
  float ReadAndConvert(const Conversion& conversion) const;

 private:
  std::string path_;
};

}  // namespace VeltranoSDK
