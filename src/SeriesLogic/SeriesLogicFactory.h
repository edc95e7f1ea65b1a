#pragma once

#include <memory>

#include "Devices/SeriesNumber.h"

namespace VeltranoSDK {

class SeriesLogic;

// Holds the only series logic of the process.
class SeriesLogicFactory {
 public:
  // Creates the series logic. The first success is final: later calls return true and change
  // nothing. False when the number has no class.
  static bool InitSeriesLogicBySeries(SeriesNumber series);

  // Empty before the first success.
  static std::shared_ptr<SeriesLogic> GetSeriesLogicInstance();

 private:
  static std::shared_ptr<SeriesLogic>& series_logic_;
};

}  // namespace VeltranoSDK
