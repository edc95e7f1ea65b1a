#include "Temperature.h"

#include <cstdio>
#include <memory>

namespace tool {

std::optional<double> ProcessorTemperature(const Family& family) {
  const products::Thermometer& thermometer = family.board.processor.thermometer;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(thermometer.file, "r"), fclose);
  unsigned raw = 0;
  if (file == nullptr || fscanf(file.get(), "%u", &raw) != 1) return std::nullopt;
  return raw * thermometer.gain / thermometer.steps + thermometer.offset;
}

}  // namespace tool
