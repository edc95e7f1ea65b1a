#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Device.h"

namespace board {

// What the kernel tells of the devices: their nodes with major and minor numbers, and for each a
// folder in /sys with attributes that never change.
class SystemTree : public Device {
 public:
  using Attribute = std::pair<std::string, std::string>;  // name, text without the line end

  struct Entry {
    std::string node;  // "video0", in /dev
    unsigned major;
    unsigned minor;
    std::string group;  // "video4linux", in /sys/class; empty: /sys does not tell of it
    std::vector<Attribute> attributes;
  };
  void Add(const Entry& entry);
  // One more attribute, in a folder of another device.
  void Add(const std::string& path, const std::string& text);

  std::string Name() const override { return "sysfs"; }
  bool Claims(const std::string& path) const override { return texts_.contains(path); }
  OpenResult Open(const std::string& path, int flags) override;
  void List(FileTree& tree) const override;

 private:
  struct Node {
    std::string path;
    unsigned major;
    unsigned minor;
  };
  std::vector<Node> nodes_;
  std::map<std::string, std::string> texts_;
  std::vector<std::pair<std::string, std::string>> links_;
};

}  // namespace board
