#pragma once

#include <memory>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

class CmosSensor;

class CmosSensorFactory {
 public:
  // The driver of a series' image sensor; empty when the series has none.
  static std::shared_ptr<CmosSensor> CreateCmosSensorBySeries(SeriesNumber series);
};

}  // namespace VeltranoSDK
