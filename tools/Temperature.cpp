#include "Temperature.h"

#include <cstdio>
#include <memory>
#include <string>

namespace tool {

std::optional<double> ProcessorTemperature(const Family& family) {
  const Thermometer& thermometer = family.thermometer;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(
      fopen(std::string(thermometer.file).c_str(), "r"), fclose);
  unsigned raw = 0;
  if (file == nullptr || fscanf(file.get(), "%u", &raw) != 1) return std::nullopt;
  return raw * thermometer.gain / thermometer.steps + thermometer.offset;
}

}  // namespace tool
