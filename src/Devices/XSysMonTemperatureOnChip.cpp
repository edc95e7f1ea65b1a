#include "Devices/XSysMonTemperatureOnChip.h"

#include <cstdio>
#include <utility>

#include "log/Log.h"

namespace VeltranoSDK {

XSysMonTemperatureOnChip::XSysMonTemperatureOnChip(std::string path) : path_(std::move(path)) {}

float XSysMonTemperatureOnChip::ReadAndConvert(const Conversion& conversion) const {
  unsigned int raw = 0;
  if (FILE* const file = fopen(path_.c_str(), "re"); file != nullptr) {
    if (fscanf(file, "%u", &raw) != 1) raw = 0;
    fclose(file);
  } else {
    LogError("fopen %s failed!\n", path_.c_str());
  }
  const double scaled = static_cast<double>(static_cast<float>(raw)) * conversion.gain;
  const auto degrees = static_cast<float>(scaled / conversion.steps + conversion.offset);
  LogTrace("GetTemp succuffully. temperature %f\n", static_cast<double>(degrees));
  return degrees;
}

}  // namespace VeltranoSDK
