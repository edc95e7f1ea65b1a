#include "SeriesLogic/ModelCode.h"

#include "tessaline/products.h"

namespace VeltranoSDK {

static_assert(products::kProducts.size() == kSeriesUnknown);

SeriesNumber SeriesOfModelCode(std::string_view model) {
  const products::Product* const product = products::FindProduct(model);
  if (product == nullptr) return kSeriesUnknown;
  return static_cast<SeriesNumber>(product - products::kProducts.data());
}

}  // namespace VeltranoSDK
