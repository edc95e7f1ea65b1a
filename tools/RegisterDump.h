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
  // Of a file that "reg dump" wrote, as text or as JSON; a Failure for another.
  static RegisterDump Load(const std::string& path);

  // "IMAGE_BLOCK_1 TRIGGER_CTRL = 0x00000043  # mode 3, ..." a line
  std::string AsText(const Registers& registers) const;
  Json AsJson(const Registers& registers) const;
};

}  // namespace tool
