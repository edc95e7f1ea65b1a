#include "SeriesLogic/ModelCode.h"

#include <array>
#include <optional>

namespace VeltranoSDK {

namespace {

struct Product {
  std::string_view code;
  SeriesNumber series;
};

// Product families by prefix, and the one model that is a variant by itself.
constexpr std::array kProducts{
    Product{"K36", kSeries21},     Product{"K37", kSeries22}, Product{"K38", kSeries23},
    Product{"K3810", kSeries2320}, Product{"K39", kSeries24}, Product{"K40", kSeries25},
};

constexpr std::size_t kPrefixLength = 3;
constexpr std::string_view kReconstructionOnProcessor = "arm_rebuild";
constexpr std::string_view kSixteenChannels = "ch16";

std::optional<SeriesNumber> Find(std::string_view code) {
  for (const Product& product : kProducts) {
    if (product.code == code) return product.series;
  }
  return std::nullopt;
}

bool Contains(std::string_view model, std::string_view word) {
  return model.find(word) != std::string_view::npos;
}

}  // namespace

SeriesNumber SeriesOfModelCode(std::string_view model) {
  const auto family = Find(model.substr(0, kPrefixLength));
  if (!family) return kSeriesUnknown;

  const bool arm = Contains(model, kReconstructionOnProcessor);
  switch (*family) {
    case kSeries22:
      if (!Contains(model, kSixteenChannels)) return kSeries22;
      return arm ? kSeries22ch16Arm : kSeries22ch16;
    case kSeries23:
      return Find(model).value_or(kSeries23);
    case kSeries24:
      return arm ? kSeries24ArmRebuild : kSeries24;
    case kSeries25:
      return arm ? kSeries25ArmRebuild : kSeries25;
    default:
      return *family;
  }
}

}  // namespace VeltranoSDK
