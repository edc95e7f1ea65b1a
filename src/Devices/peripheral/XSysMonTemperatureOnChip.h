#pragma once

#include "tessaline/products.h"

namespace VeltranoSDK {

// The processor's temperature as its system monitor reports it through IIO.
class XSysMonTemperatureOnChip {
 public:
  virtual ~XSysMonTemperatureOnChip() = default;

  // Degrees Celsius. Without the IIO device: an ERROR in the log and the value of a
  // raw reading of 0, which is below -270. Threads: any.
  float GetTemp() const;

 protected:
  explicit XSysMonTemperatureOnChip(const products::Thermometer& thermometer)
      : thermometer_(thermometer) {}

 private:
  const products::Thermometer& thermometer_;
};

}  // namespace VeltranoSDK
