#pragma once

#include <string>
#include <vector>

#include "Registers.h"

namespace tool {

// The registers of a board at one moment.
struct RegisterDump {
  struct Entry {
    std::string block;
    std::string name;
    std::uint32_t value;
    bool operator==(const Entry&) const = default;
  };
  std::vector<Entry> entries;

  static RegisterDump Take(const Registers& registers);
  // Reads a file that "reg dump" wrote, as text or JSON; throws a Failure for any other.
  static RegisterDump Load(const std::string& path);

  // One line per register: "IMAGE_BLOCK_1 TRIGGER_CTRL = 0x00000043  # mode 3, ..."
  std::string AsText(const Registers& registers) const;
  Json AsJson(const Registers& registers) const;
};

}  // namespace tool
