#include "Devices/SeriesBoard.h"

#include <memory>

#include "SeriesLogic/SeriesLogic.h"
#include "SeriesLogic/SeriesLogicFactory.h"
#include "log/Log.h"

namespace VeltranoSDK {

namespace {

template <typename Getter>
std::string OfSeries(const char* what, Getter get) {
  const auto series = SeriesLogicFactory::GetSeriesLogicInstance();
  if (!series) {
    LogError("%s is unknown: no product model selected", what);
    return {};
  }
  return get(*series);
}

}  // namespace

std::string DaChipBus() {
  return OfSeries("DA chip bus", [](const SeriesLogic& s) { return s.da_chip_i2c_dev(); });
}

std::string DigitalPotBus() {
  return OfSeries("potentiometer bus",
                  [](const SeriesLogic& s) { return s.digital_pot_i2c_dev(); });
}

std::string SensorBus() {
  return OfSeries("image sensor bus", [](const SeriesLogic& s) { return s.sensor_bus_dev(); });
}

std::string LineNumber(BoardLine line) {
  return OfSeries("GPIO line",
                  [line](const SeriesLogic& s) { return s.gpio_line(static_cast<int>(line)); });
}

}  // namespace VeltranoSDK
