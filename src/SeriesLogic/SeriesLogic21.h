#pragma once

#include "SeriesLogic/SeriesLogic.h"

namespace VeltranoSDK {

// IMX273. Adds no programming to the common start-up.
class SeriesLogic21 : public SeriesLogic {
 public:
  SeriesLogic21();
  unsigned int GetCallbackLostCount() override;
  bool ResetCallbackLostCount() override;
};

}  // namespace VeltranoSDK
