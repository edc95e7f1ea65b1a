#pragma once

#include <utility>

#include "Devices/sensor/CmosSensorTypes.h"
#include "SeriesLogic/SeriesLogic.h"
#include "tessaline/products.h"

namespace VeltranoSDK {

// GMAX2509, read out as 4200 x 2048.
class SeriesLogic23 : public SeriesLogic {
 public:
  SeriesLogic23();
  float GetRisingEdgeThresholdCoeff() override;
  unsigned int GetCallbackLostCount() override;
  bool ResetCallbackLostCount() override;

  // The drive mode in which the sensor covers its full field.
  virtual ReadoutDriveMode GetDefaultCmosReadoutDriveMode();
  // Where a region of interest starts on the sensor: (x, first row). The sensor counts rows from
  // the other end. The arithmetic is unsigned and wraps beyond the limit.
  virtual std::pair<unsigned int, unsigned int> CalStartPoint(unsigned int x, unsigned int y,
                                                              unsigned int width,
                                                              unsigned int height);
  // The argument of FpgaLogic::SetPLDriveMode while the sensor runs subsampled.
  virtual ReadoutDriveMode GetSubsamplingPLDriveMode();

  // Size of the sensor as this product uses it.
  unsigned int limit_a() const { return limit_a_; }
  unsigned int limit_b() const { return limit_b_; }

 protected:
  explicit SeriesLogic23(const products::Product& product);

 private:
  unsigned int limit_a_;
  unsigned int limit_b_;
};

// GMAX2509 that always runs subsampled, with half the rows.
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
