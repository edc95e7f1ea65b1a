#pragma once

#include <memory>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

class DigitalPOT;

class DigitalPOTFactory {
 public:
  static std::shared_ptr<DigitalPOT> CreateDigitalPOTBySeries(SeriesNumber series);
};

}  // namespace VeltranoSDK
