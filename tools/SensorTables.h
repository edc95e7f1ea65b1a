#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tool {

// A register table of the build this tool belongs to.
struct SensorTable {
  std::string sensor;
  std::string header;
  std::string name;
  std::size_t entries;
  std::size_t placeholders;  // entries that wait for the chip maker's documents
};

std::vector<SensorTable> SensorTables();

}  // namespace tool
