#pragma once

#include "SeriesLogic/SeriesLogic22ch16.h"

namespace VeltranoSDK {

// The same with reconstruction on the processor.
class SeriesLogic22ch16Arm : public SeriesLogic22ch16 {
 public:
  SeriesLogic22ch16Arm();
};

}  // namespace VeltranoSDK
