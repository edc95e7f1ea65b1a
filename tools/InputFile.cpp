#include "InputFile.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>

#include "Failure.h"

namespace tool {
namespace {

Failure CannotRead(const std::string& path, int error, const char* next) {
  return Failure(ExitCode::kFile, fmt::format("cannot read {}: {}", path, strerror(error)), next);
}

}  // namespace

std::ifstream OpenToRead(const std::string& path, const char* next) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  // A directory can be opened, but not read.
  if (file) file.peek();
  if (!file.is_open() || file.bad()) throw CannotRead(path, errno, next);
  file.clear();  // an empty file can be read
  return file;
}

std::vector<std::uint8_t> ReadWholeFile(const std::string& path, std::size_t most,
                                        const char* next) {
  std::ifstream file = OpenToRead(path, next);
  std::vector<std::uint8_t> bytes(most);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(most));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  if (file.bad()) throw CannotRead(path, errno, next);
  if (file.peek() != std::ifstream::traits_type::eof()) throw CannotRead(path, EFBIG, next);
  return bytes;
}

}  // namespace tool
