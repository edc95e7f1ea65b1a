#include "SeriesLogic/SeriesLogicFactory.h"

#include "SeriesLogic/SeriesLogic21.h"
#include "SeriesLogic/SeriesLogic22.h"
#include "SeriesLogic/SeriesLogic23.h"
#include "SeriesLogic/SeriesLogic24.h"
#include "SeriesLogic/SeriesLogic25.h"

namespace VeltranoSDK {

namespace {

std::shared_ptr<SeriesLogic> Create(SeriesNumber series) {
  switch (series) {
    case kSeries21:
      return std::make_shared<SeriesLogic21>();
    case kSeries22:
      return std::make_shared<SeriesLogic22>();
    case kSeries22ch16:
      return std::make_shared<SeriesLogic22ch16>();
    case kSeries22ch16Arm:
      return std::make_shared<SeriesLogic22ch16Arm>();
    case kSeries23:
      return std::make_shared<SeriesLogic23>();
    case kSeries2320:
      return std::make_shared<SeriesLogic2320>();
    case kSeries24:
      return std::make_shared<SeriesLogic24>();
    case kSeries24ArmRebuild:
      return std::make_shared<SeriesLogic24ArmRebuild>();
    case kSeries25:
      return std::make_shared<SeriesLogic25>();
    case kSeries25ArmRebuild:
      return std::make_shared<SeriesLogicArmRebuild>();
    case kSeriesUnknown:
      break;
  }
  return nullptr;
}

}  // namespace

// Never destroyed: threads and atexit functions use it while the process ends.
std::shared_ptr<SeriesLogic>& SeriesLogicFactory::series_logic_ = *new std::shared_ptr<SeriesLogic>;

bool SeriesLogicFactory::InitSeriesLogicBySeries(SeriesNumber series) {
  if (series_logic_ == nullptr) series_logic_ = Create(series);
  return series_logic_ != nullptr;
}

std::shared_ptr<SeriesLogic> SeriesLogicFactory::GetSeriesLogicInstance() { return series_logic_; }

}  // namespace VeltranoSDK
