#pragma once

#include <string>

namespace kernel_test {

// A number for the report and the documentation; it decides nothing.
void Measured(const std::string& what, double value, const std::string& unit);

}  // namespace kernel_test
