#pragma once

#include "SeriesLogic/SeriesLogic.h"

namespace VeltranoSDK {

// IMX252.
class SeriesLogic22 : public SeriesLogic {
 public:
  SeriesLogic22();
  float GetRisingEdgeThresholdCoeff() override;
  unsigned int GetCallbackLostCount() override;
  bool ResetCallbackLostCount() override;
};

// IMX252 read out over 16 channels.
class SeriesLogic22ch16 : public SeriesLogic22 {
 public:
  SeriesLogic22ch16();
};

// The same with reconstruction on the processor.
class SeriesLogic22ch16Arm : public SeriesLogic22ch16 {
 public:
  SeriesLogic22ch16Arm();
};

}  // namespace VeltranoSDK
