#include "devices/SystemTree.h"

#include "devices/SysfsFile.h"
#include "files/FileTree.h"

namespace board {
namespace {

constexpr const char* kBus = "/sys/devices/platform/tessaline/";

}  // namespace

std::string SystemTree::Add(const Hardware& hardware) {
  const std::string folder = hardware.folder.empty() ? kBus + hardware.name : hardware.folder;
  const std::string bus = "/sys/bus/" + hardware.bus;
  links_.emplace_back(bus + "/devices/" + hardware.name, folder);
  links_.emplace_back(folder + "/subsystem", bus);
  AddText(folder + "/uevent", hardware.uevent);
  for (const auto& [name, text] : hardware.attributes) AddText(folder + '/' + name, text);
  return folder;
}

std::string SystemTree::Add(const Entry& entry) {
  nodes_.push_back({"/dev/" + entry.node, entry.major, entry.minor});
  if (entry.group.empty()) return {};
  const std::string number = fmt::format("{}:{}", entry.major, entry.minor);
  const std::string folder = kBus + entry.group + '/' + entry.node;
  links_.emplace_back("/sys/class/" + entry.group + '/' + entry.node, folder);
  links_.emplace_back("/sys/dev/char/" + number, folder);
  links_.emplace_back(folder + "/subsystem", "/sys/class/" + entry.group);
  if (!entry.device.empty()) links_.emplace_back(folder + "/device", entry.device);
  AddText(folder + "/dev", number);
  AddText(folder + "/uevent",
          fmt::format("MAJOR={}\nMINOR={}\nDEVNAME={}", entry.major, entry.minor, entry.node));
  for (const auto& [name, text] : entry.attributes) AddText(folder + '/' + name, text);
  return folder;
}

void SystemTree::Add(const std::string& path, Show show) { texts_[path] = std::move(show); }

void SystemTree::AddText(const std::string& path, const std::string& text) {
  Add(path, [text] { return text; });
}

OpenResult SystemTree::Open(const std::string& path, int flags) {
  return OpenSysfs({.device = Name(),
                    .label = path,
                    .show =
                        [show = texts_.at(path)] {
                          const std::string text = show();
                          return text.empty() ? text : text + '\n';
                        },
                    .store = nullptr},
                   flags, nullptr);
}

void SystemTree::List(FileTree& tree) const {
  for (const Node& node : nodes_) tree.AddDevice(node.path, node.major, node.minor);
  for (const auto& [path, show] : texts_) tree.AddFile(path, true, false);
  for (const auto& [path, target] : links_) tree.AddLink(path, target);
}

}  // namespace board
