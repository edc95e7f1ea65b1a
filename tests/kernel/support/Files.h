#pragma once

#include <string>

namespace kernel_test {

// Whole files, the way a shell reads and writes them. What cannot be read is empty.
std::string ReadFile(const std::string& path);
bool WriteFile(const std::string& path, const std::string& text);

// Without the line end.
std::string ReadLine(const std::string& path);

}  // namespace kernel_test
