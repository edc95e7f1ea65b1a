#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tool {

// One call of the library that changes something. The same list is run, and shown in a dry run.
struct Step {
  std::string call;    // "SetLaserPower(50)"
  std::string effect;  // for people; may be empty
  std::function<bool()> run;
};

// Runs the steps in order; throws a Failure at the first that is refused.
void Run(const std::vector<Step>& steps);

}  // namespace tool
