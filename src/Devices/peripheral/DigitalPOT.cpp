#include "Devices/peripheral/DigitalPOT.h"

#include <limits>

namespace VeltranoSDK {

unsigned int DigitalPOT::StepOf(float percent, unsigned int resolution) {
  const double step = static_cast<double>(static_cast<float>(resolution - 1) * percent) * 0.01;
  if (!(step > 0)) return 0;
  constexpr auto kMost = std::numeric_limits<unsigned int>::max();
  return step < kMost ? static_cast<unsigned int>(step) : kMost;
}

}  // namespace VeltranoSDK
