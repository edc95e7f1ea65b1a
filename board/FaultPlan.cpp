#include "FaultPlan.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <utility>
#include <vector>

#include "Transcript.h"
#include "tessaline/board.h"
#include "tessaline/register_map.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;

using Words = std::vector<std::string>;

// Returns 0 if it is not the name of an error.
int ErrnoOf(const std::string& name) {
  for (int error = 1; error <= EHWPOISON; ++error) {
    if (ErrnoName(error) == name) return error;
  }
  return 0;
}

struct FrameWord {
  std::string_view name;
  enum tessaline_board_frame_fault kind;
};

constexpr std::array kFrameFaults{FrameWord{"lost", TESSALINE_BOARD_FRAME_LOST},
                                  FrameWord{"late", TESSALINE_BOARD_FRAME_LATE},
                                  FrameWord{"truncated", TESSALINE_BOARD_FRAME_TRUNCATED},
                                  FrameWord{"corrupt", TESSALINE_BOARD_FRAME_CORRUPT}};

template <typename Table>
auto Find(const Table& table, std::string_view name) -> decltype(table.data()) {
  const auto found =
      std::find_if(table.begin(), table.end(), [&](const auto& word) { return word.name == name; });
  return found == table.end() ? nullptr : &*found;
}

// Accepts decimal or 0x... numbers. Returns false if the word is not a number.
bool Parse(std::string_view word, unsigned& value) {
  const bool hexadecimal = word.starts_with("0x");
  if (hexadecimal) word.remove_prefix(2);
  const char* const end = word.data() + word.size();
  const auto parsed = std::from_chars(word.data(), end, value, hexadecimal ? 16 : 10);
  return parsed.ec == std::errc() && parsed.ptr == end && !word.empty();
}

// Parses the optional numbers SKIP and COUNT. Without them the fault starts at once and never ends.
bool ParseWhen(const Words& words, std::size_t at, unsigned& skip, unsigned& count) {
  skip = count = 0;
  if (words.size() > at + 2) return false;
  return (words.size() <= at || Parse(words[at], skip)) &&
         (words.size() <= at + 1 || Parse(words[at + 1], count));
}

bool PlantCall(const Words& words) {
  unsigned skip = 0;
  unsigned count = 0;
  if (words.size() < 4 || !ParseWhen(words, 4, skip, count)) return false;
  const int error = ErrnoOf(words[3]);
  if (error == 0) return false;
  tessaline_board_fault(words[1].c_str(), words[2].c_str(), skip, count, error);
  return true;
}

bool PlantFrame(const Words& words) {
  unsigned skip = 0;
  unsigned count = 0;
  if (words.size() < 3 || !ParseWhen(words, 3, skip, count)) return false;
  const auto* const fault = Find(kFrameFaults, words[2]);
  if (fault == nullptr || (words[1] != "images" && words[1] != "strips")) return false;
  tessaline_board_frame_fault(words[1] == "images" ? 0 : 1, fault->kind, skip, count);
  return true;
}

bool PlantAbsence(const Words& words) {
  return words.size() == 2 && tessaline_board_chip_present(words[1].c_str(), 0) == 0;
}

bool PlantChipValue(const Words& words) {
  unsigned address = 0;
  unsigned value = 0;
  return words.size() == 4 && Parse(words[2], address) && Parse(words[3], value) &&
         tessaline_board_chip_set(words[1].c_str(), address, value) == 0;
}

bool PlantRegister(const Words& words) {
  unsigned value = 0;
  if (words.size() != 3 || !Parse(words[2], value)) return false;
  const auto* const reg = Find(fpga::kAllRegisters, words[1]);
  if (reg == nullptr) return false;
  tessaline_board_register_set(static_cast<unsigned>(reg->block), reg->offset, value);
  return true;
}

bool PlantTemperature(const Words& words) {
  unsigned raw = 0;
  if (words.size() != 2 || !Parse(words[1], raw)) return false;
  tessaline_board_set_temperature_raw(raw);
  return true;
}

bool PlantNoPoll(const Words& words) {
  return words.size() == 2 && tessaline_board_set_poll(words[1].c_str(), 0) == 0;
}

struct Kind {
  std::string_view name;
  bool (*plant)(const Words& words);
  std::string_view usage;
};

constexpr std::array kKinds{
    Kind{"call", PlantCall, "call DEVICE OPERATION ERRNO [SKIP [COUNT]]"},
    Kind{"frame", PlantFrame, "frame images|strips lost|late|truncated|corrupt [SKIP [COUNT]]"},
    Kind{"absent", PlantAbsence, "absent CHIP"},
    Kind{"chip", PlantChipValue, "chip CHIP ADDRESS VALUE"},
    Kind{"register", PlantRegister, "register NAME VALUE"},
    Kind{"temperature", PlantTemperature, "temperature RAW"},
    Kind{"nopoll", PlantNoPoll, "nopoll DEVICE"}};

Words Split(std::string_view fault) {
  Words words;
  std::string word;
  for (const char c : fault.substr(0, fault.find('#'))) {
    if (c != ' ' && c != '\t') {
      word += c;
    } else if (!word.empty()) {
      words.push_back(std::exchange(word, {}));
    }
  }
  if (!word.empty()) words.push_back(word);
  return words;
}

}  // namespace

std::string PlantFaults(std::string_view text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(";\n"), text.size());
    const std::string_view fault = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const Words words = Split(fault);
    if (words.empty()) continue;
    const Kind* const kind = Find(kKinds, words.front());
    if (kind == nullptr) return fmt::format("\"{}\" is not a kind of fault", words.front());
    if (!kind->plant(words)) return fmt::format("\"{}\" is not: {}", fault, kind->usage);
  }
  return {};
}

}  // namespace board
