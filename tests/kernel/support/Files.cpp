#include "support/Files.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace kernel_test {

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A driver's attribute reports a refused value as the result of write(), so write only once.
bool WriteFile(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_TRUNC);
  if (fd < 0) return false;
  const ssize_t written = write(fd, text.data(), text.size());
  close(fd);
  return written == static_cast<ssize_t>(text.size());
}

std::string ReadLine(const std::string& path) {
  std::string text = ReadFile(path);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace kernel_test
