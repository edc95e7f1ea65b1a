#pragma once

#include <string>
#include <vector>

namespace kernel_test {

// Records a number for the report and the documentation; it decides nothing.
void Measured(const std::string& what, double value, const std::string& unit);

// Records median and longest of these times in seconds, and expects all to be below one second.
void ExpectEachWithinASecond(const std::string& what, std::vector<double> seconds);

}  // namespace kernel_test
