#pragma once

#include <string>
#include <vector>

namespace kernel_test {

// A number for the report and the documentation; it decides nothing.
void Measured(const std::string& what, double value, const std::string& unit);

// Median and longest of these seconds, which shall all be below one.
void ExpectEachWithinASecond(const std::string& what, std::vector<double> seconds);

}  // namespace kernel_test
