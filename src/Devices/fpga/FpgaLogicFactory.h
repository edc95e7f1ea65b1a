#pragma once

#include <memory>

namespace VeltranoSDK {

class FpgaLogic;
enum SeriesNumber : int;

class FpgaLogicFactory {
 public:
  static std::shared_ptr<FpgaLogic> CreateFpgaLogicBySeries(SeriesNumber series);
};

}  // namespace VeltranoSDK
