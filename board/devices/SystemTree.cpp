#include "devices/SystemTree.h"

#include "devices/SysfsFile.h"
#include "files/FileTree.h"

namespace board {
namespace {

constexpr const char* kBus = "/sys/devices/platform/tessaline/";

}  // namespace

void SystemTree::Add(const Entry& entry) {
  nodes_.push_back({"/dev/" + entry.node, entry.major, entry.minor});
  if (entry.group.empty()) return;
  const std::string number = fmt::format("{}:{}", entry.major, entry.minor);
  const std::string folder = kBus + entry.group + '/' + entry.node;
  links_.emplace_back("/sys/class/" + entry.group + '/' + entry.node, folder);
  links_.emplace_back("/sys/dev/char/" + number, folder);
  links_.emplace_back(folder + "/subsystem", "/sys/class/" + entry.group);
  Add(folder + "/dev", number);
  Add(folder + "/uevent",
      fmt::format("MAJOR={}\nMINOR={}\nDEVNAME={}", entry.major, entry.minor, entry.node));
  for (const auto& [name, text] : entry.attributes) Add(folder + '/' + name, text);
}

void SystemTree::Add(const std::string& path, const std::string& text) {
  texts_[path] = text + '\n';
}

OpenResult SystemTree::Open(const std::string& path, int flags) {
  return OpenSysfs({.device = Name(),
                    .label = path,
                    .show = [text = texts_.at(path)] { return text; },
                    .store = nullptr},
                   flags, nullptr);
}

void SystemTree::List(FileTree& tree) const {
  for (const Node& node : nodes_) tree.AddDevice(node.path, node.major, node.minor);
  for (const auto& [path, text] : texts_) tree.AddFile(path, true, false);
  for (const auto& [path, target] : links_) tree.AddLink(path, target);
}

}  // namespace board
