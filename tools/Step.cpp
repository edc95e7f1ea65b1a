#include "Step.h"

#include <fmt/format.h>

#include "Failure.h"
#include "LibraryOutput.h"

namespace tool {

void Run(const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    if (step.run()) continue;
    // The library's own text is the most precise reason.
    const auto printed = LibraryOutput::Instance().Printed();
    throw Failure(ExitCode::kNegative,
                  fmt::format("{} was refused{}", step.call,
                              printed.empty() ? "" : fmt::format(" (\"{}\")", printed.back())),
                  "see the ranges in the sub-command's --help, and \"tessaline check\" for the "
                  "board");
  }
}

}  // namespace tool
