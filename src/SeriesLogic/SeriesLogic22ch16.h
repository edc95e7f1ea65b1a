#pragma once

#include "SeriesLogic/SeriesLogic22.h"

namespace VeltranoSDK {

// IMX252 read out over 16 channels.
class SeriesLogic22ch16 : public SeriesLogic22 {
 public:
  SeriesLogic22ch16();
};

}  // namespace VeltranoSDK
