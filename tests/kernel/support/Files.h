#pragma once

#include <string>

namespace kernel_test {

// Whole files, as a shell reads and writes them. A file that cannot be read is empty.
std::string ReadFile(const std::string& path);
bool WriteFile(const std::string& path, const std::string& text);

// Without the newline.
std::string ReadLine(const std::string& path);

}  // namespace kernel_test
