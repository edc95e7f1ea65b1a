#include "DeviceOwner.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>

namespace tool {
namespace {

namespace fs = std::filesystem;

bool IsOpenIn(const fs::path& process, dev_t device) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(process / "fd", error)) {
    struct stat info {};
    const bool known = stat(entry.path().c_str(), &info) == 0;
    if (known && S_ISCHR(info.st_mode) && info.st_rdev == device) return true;
  }
  return false;
}

}  // namespace

std::string DeviceOwner::Name() const { return fmt::format("{} (process {})", program, process); }

std::optional<DeviceOwner> FindOwner(const std::string& node) {
  struct stat info {};
  if (stat(node.c_str(), &info) != 0 || !S_ISCHR(info.st_mode)) return std::nullopt;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/proc", error)) {
    const std::string name = entry.path().filename();
    pid_t process = 0;
    const auto [end, wrong] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (wrong != std::errc() || *end != '\0' || process == getpid()) continue;
    if (!IsOpenIn(entry.path(), info.st_rdev)) continue;
    DeviceOwner owner{process, {}};
    std::ifstream file(entry.path() / "comm");
    std::getline(file, owner.program);
    return owner;
  }
  return std::nullopt;
}

}  // namespace tool
