#include "devices/IioTemperature.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "devices/SysfsFile.h"
#include "files/FileTree.h"
#include "memory/BoardMemory.h"

namespace board {
namespace {

constexpr std::string_view kName = "iio";

}  // namespace

IioTemperature::IioTemperature(BoardMemory& memory, std::vector<std::string> paths, unsigned raw)
    : paths_(std::move(paths)), raw_(memory.Place<std::atomic<unsigned>>()) {
  if (memory.IsFirst()) raw_ = raw;
}

std::string IioTemperature::Name() const { return std::string(kName); }

bool IioTemperature::Claims(const std::string& path) const {
  return std::ranges::find(paths_, path) != paths_.end();
}

void IioTemperature::List(FileTree& tree) const {
  for (const std::string& path : paths_) tree.AddFile(path, true, false);
}

OpenResult IioTemperature::Open(const std::string& path, int flags) {
  SysfsAttribute attribute{.device = Name(),
                           .label = path.substr(path.rfind('/') + 1),
                           .show = [&raw = raw_] { return std::to_string(raw) + '\n'; },
                           .store = nullptr};
  return OpenSysfs(std::move(attribute), flags, CountOpen());
}

}  // namespace board
