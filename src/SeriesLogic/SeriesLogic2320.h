#pragma once

#include "SeriesLogic/SeriesLogic23.h"

namespace VeltranoSDK {

// GMAX2509 that always runs subsampled: half as many rows.
class SeriesLogic2320 : public SeriesLogic23 {
 public:
  SeriesLogic2320();
  ReadoutDriveMode GetDefaultCmosReadoutDriveMode() override;
  std::pair<unsigned int, unsigned int> CalStartPoint(unsigned int x, unsigned int y,
                                                      unsigned int width,
                                                      unsigned int height) override;
  ReadoutDriveMode GetSubsamplingPLDriveMode() override;
};

}  // namespace VeltranoSDK
