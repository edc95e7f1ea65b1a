#include "devices/Gpio.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "devices/SysfsFile.h"
#include "files/FileTree.h"

namespace board {
namespace {

constexpr std::string_view kName = "gpio";
constexpr std::string_view kFolder = "/sys/class/gpio/";

enum class Direction { kIn, kOut };

struct Line {
  unsigned number = 0;
  bool exported = false;
  unsigned exports = 0;  // open files of an earlier export no longer work
  Direction direction = Direction::kIn;
  bool active_low = false;
  bool level = false;  // electrical
};

// Splits "gpio907/value" into line and file.
std::optional<std::pair<unsigned, std::string_view>> ParseLineFile(std::string_view file) {
  constexpr std::string_view kPrefix = "gpio";
  if (!file.starts_with(kPrefix)) return std::nullopt;
  file.remove_prefix(kPrefix.size());
  unsigned line = 0;
  const auto [rest, error] = std::from_chars(file.data(), file.data() + file.size(), line);
  if (error != std::errc{} || rest == file.data() + file.size() || *rest != '/') {
    return std::nullopt;
  }
  file.remove_prefix(static_cast<std::size_t>(rest - file.data()) + 1);
  return std::pair{line, file};
}

int StoreDirection(Line& line, std::string_view text) {
  struct Word {
    std::string_view text;
    Direction direction;
    bool level;
  };
  constexpr std::array kWords{
      Word{"in", Direction::kIn, false}, Word{"out", Direction::kOut, false},
      Word{"low", Direction::kOut, false}, Word{"high", Direction::kOut, true}};
  for (const Word& word : kWords) {
    if (WithoutLineEnd(text) != word.text) continue;
    line.direction = word.direction;
    if (word.direction == Direction::kOut) line.level = word.level;
    return 0;
  }
  return -EINVAL;
}

int StoreValue(Line& line, std::string_view text) {
  if (line.direction != Direction::kOut) return -EPERM;
  const auto value = ParseNumber(text);
  if (!value) return -EINVAL;
  line.level = (*value != 0) != line.active_low;
  return 0;
}

int StoreActiveLow(Line& line, std::string_view text) {
  const auto value = ParseNumber(text);
  if (!value) return -EINVAL;
  line.active_low = *value != 0;
  return 0;
}

struct LineFile {
  std::string_view name;
  std::string (*show)(const Line&);
  int (*store)(Line&, std::string_view);
};

constexpr std::array kLineFiles{
    LineFile{"direction",
             [](const Line& line) -> std::string {
               return line.direction == Direction::kOut ? "out\n" : "in\n";
             },
             StoreDirection},
    LineFile{"value",
             [](const Line& line) -> std::string {
               return line.level != line.active_low ? "1\n" : "0\n";
             },
             StoreValue},
    LineFile{"active_low",
             [](const Line& line) -> std::string { return line.active_low ? "1\n" : "0\n"; },
             StoreActiveLow},
};

const LineFile* FindLineFile(std::string_view name) {
  for (const LineFile& file : kLineFiles) {
    if (file.name == name) return &file;
  }
  return nullptr;
}

}  // namespace

struct Gpio::Lines {
  static constexpr std::size_t kMost = 32;

  // The line named by a text that was written to export or unexport.
  Line* Named(std::string_view text) {
    const auto number = ParseNumber(text);
    return number && *number >= 0 ? Find(static_cast<unsigned>(*number)) : nullptr;
  }

  Line* Find(unsigned number) {
    const auto found = std::find_if(lines.begin(), lines.begin() + count,
                                    [=](const Line& line) { return line.number == number; });
    return found == lines.begin() + count ? nullptr : &*found;
  }

  // The exported line, or null; `exports` 0 takes whichever export is current.
  Line* Exported(unsigned number, unsigned exports = 0) {
    Line* const line = Find(number);
    if (line == nullptr || !line->exported) return nullptr;
    return exports == 0 || exports == line->exports ? line : nullptr;
  }

  int Export(std::string_view text) {
    Line* const line = Named(text);
    if (line == nullptr) return -EINVAL;
    if (line->exported) return -EBUSY;
    line->exported = true;
    ++line->exports;
    return 0;
  }

  // The pin keeps its direction and level. The inversion ends with the export.
  int Unexport(std::string_view text) {
    Line* const line = Named(text);
    if (line == nullptr || !line->exported) return -EINVAL;
    line->exported = false;
    line->active_low = false;
    return 0;
  }

  std::array<Line, kMost> lines{};
  std::ptrdiff_t count = 0;
};

Gpio::Gpio(BoardMemory& memory, const std::vector<unsigned>& numbers) : lines_(memory) {
  const auto lines = lines_.Lock();
  if (lines->count != 0) return;  // set by another process
  for (const unsigned number : numbers) lines->lines.at(lines->count++).number = number;
}

int Gpio::Level(unsigned line) const {
  const auto lines = lines_.Lock();
  const Line* const exported = lines->Exported(line);
  return exported != nullptr && exported->direction == Direction::kOut ? exported->level : -1;
}

std::string Gpio::Name() const { return std::string(kName); }

bool Gpio::Claims(const std::string& path) const { return path.starts_with(kFolder); }

void Gpio::List(FileTree& tree) const {
  const std::string folder(kFolder);
  tree.AddFile(folder + "export", false, true);
  tree.AddFile(folder + "unexport", false, true);
  const auto lines = lines_.Lock();
  for (const Line& line : lines->lines) {
    if (!line.exported) continue;
    for (const LineFile& file : kLineFiles) {
      tree.AddFile(folder + "gpio" + std::to_string(line.number) + '/' + std::string(file.name),
                   true, true);
    }
  }
}

OpenResult Gpio::Open(const std::string& path, int flags) {
  const std::string label = path.substr(kFolder.size());
  SysfsAttribute attribute{.device = Name(), .label = label, .show = nullptr, .store = nullptr};
  if (label == "export") {
    attribute.store = [lines = lines_](std::string_view text) {
      return lines.Lock()->Export(text);
    };
    return OpenSysfs(std::move(attribute), flags, CountOpen());
  }
  if (label == "unexport") {
    attribute.store = [lines = lines_](std::string_view text) {
      return lines.Lock()->Unexport(text);
    };
    return OpenSysfs(std::move(attribute), flags, CountOpen());
  }

  const auto parsed = ParseLineFile(label);
  const LineFile* file = parsed ? FindLineFile(parsed->second) : nullptr;
  if (file == nullptr) return {nullptr, ENOENT};
  const unsigned number = parsed->first;
  unsigned exports = 0;
  {
    const auto lines = lines_.Lock();
    const Line* line = lines->Exported(number);
    if (line == nullptr) return {nullptr, ENOENT};
    exports = line->exports;
  }
  attribute.show = [lines = lines_, number, exports, file]() -> std::optional<std::string> {
    const auto locked = lines.Lock();
    const Line* line = locked->Exported(number, exports);
    return line == nullptr ? std::nullopt : std::optional(file->show(*line));
  };
  attribute.store = [lines = lines_, number, exports, file](std::string_view text) {
    const auto locked = lines.Lock();
    Line* line = locked->Exported(number, exports);
    return line == nullptr ? -ENODEV : file->store(*line, text);
  };
  return OpenSysfs(std::move(attribute), flags, CountOpen());
}

}  // namespace board
