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

}  // namespace VeltranoSDK
