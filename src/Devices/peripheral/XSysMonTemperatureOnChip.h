#pragma once

#include "tessaline/products.h"

namespace VeltranoSDK {

// The processor's temperature, which its system monitor reports through IIO.
class XSysMonTemperatureOnChip {
 public:
  virtual ~XSysMonTemperatureOnChip() = default;

  // Degrees Celsius. Without the IIO device the result is that of a raw reading of 0, below -270,
  // and the log has an ERROR. Threads: any.
  float GetTemp() const;

 protected:
  explicit XSysMonTemperatureOnChip(const products::Thermometer& thermometer)
      : thermometer_(thermometer) {}

 private:
  const products::Thermometer& thermometer_;
};

}  // namespace VeltranoSDK
