// Passes any text as the model code. Compares the result with an independent version of the product
// table.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>

#include "SeriesLogic/ModelCode.h"
#include "support/Require.h"

namespace {

using tessaline_fuzz::Require;
using namespace VeltranoSDK;  // NOLINT(google-build-using-namespace)

SeriesNumber ByHand(const char* model) {
  const bool arm = strstr(model, "arm_rebuild") != nullptr;
  const bool ch16 = strstr(model, "ch16") != nullptr;
  if (strncmp(model, "K36", 3) == 0) return kSeries21;
  if (strncmp(model, "K37", 3) == 0) {
    return !ch16 ? kSeries22 : arm ? kSeries22ch16Arm : kSeries22ch16;
  }
  if (strncmp(model, "K38", 3) == 0) return strcmp(model, "K3810") == 0 ? kSeries2320 : kSeries23;
  if (strncmp(model, "K39", 3) == 0) return arm ? kSeries24ArmRebuild : kSeries24;
  if (strncmp(model, "K40", 3) == 0) return arm ? kSeries25ArmRebuild : kSeries25;
  return kSeriesUnknown;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An application passes the text up to the first zero, in a block of exactly that length.
  const std::size_t length = strnlen(reinterpret_cast<const char*>(data), size);
  const auto model = std::make_unique<char[]>(length + 1);
  if (length > 0) memcpy(model.get(), data, length);
  Require(SeriesOfModelCode(model.get()) == ByHand(model.get()), "the series of the code");
  return 0;
}
