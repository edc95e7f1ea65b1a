#pragma once

#include "SeriesLogic/SeriesLogic.h"

namespace VeltranoSDK {

// GSPRINT6502BSI, with the image-processing pipeline in the FPGA.
class SeriesLogic24 : public SeriesLogic {
 public:
  SeriesLogic24();
  float GetRisingEdgeThresholdCoeff() override;
  unsigned int GetCallbackLostCount() override;
  bool ResetCallbackLostCount() override;
};

// The same with reconstruction on the processor.
class SeriesLogic24ArmRebuild : public SeriesLogic24 {
 public:
  SeriesLogic24ArmRebuild();
};

}  // namespace VeltranoSDK
