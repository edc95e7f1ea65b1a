#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace tool {

// Opens a file to read it. Throws a Failure if that cannot be done; `next` is what to do then.
std::ifstream OpenToRead(const std::string& path, const char* next);

// All of a file, up to `most` bytes.
std::vector<std::uint8_t> ReadWholeFile(
    const std::string& path, std::size_t most = 1 << 20,
    const char* next = "give the path of a file written by \"dump -o\"");

}  // namespace tool
