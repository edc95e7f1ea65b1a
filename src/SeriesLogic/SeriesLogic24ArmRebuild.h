#pragma once

#include "SeriesLogic/SeriesLogic24.h"

namespace VeltranoSDK {

// The same with reconstruction on the processor.
class SeriesLogic24ArmRebuild : public SeriesLogic24 {
 public:
  SeriesLogic24ArmRebuild();
};

}  // namespace VeltranoSDK
