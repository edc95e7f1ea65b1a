#include "Step.h"

#include <fmt/format.h>

#include "Failure.h"

namespace tool {

void Run(const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    if (step.run()) continue;
    throw Failure(ExitCode::kNegative, fmt::format("{} was refused by the device", step.call),
                  "\"tessaline check\" tests the board; --verbose shows the library's own reason");
  }
}

}  // namespace tool
