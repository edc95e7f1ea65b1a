#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Device.h"

namespace board {

// What the kernel tells of the devices: their nodes with major and minor numbers, and for each a
// folder in /sys with attributes.
class SystemTree : public Device {
 public:
  using Attribute = std::pair<std::string, std::string>;  // name, text without the line end
  using Show = std::function<std::string()>;              // returns the text now

  // A device on one of the kernel's buses, which is what a node belongs to.
  struct Hardware {
    std::string bus;     // "i2c", in /sys/bus
    std::string name;    // "i2c-0"
    std::string folder;  // where it is; empty: with the other devices
    std::string uevent;
    std::vector<Attribute> attributes;
  };
  // Returns its folder.
  std::string Add(const Hardware& hardware);

  struct Entry {
    std::string node;  // "video0", in /dev
    unsigned major;
    unsigned minor;
    std::string group;  // "video4linux", in /sys/class; empty: /sys does not tell of it
    std::vector<Attribute> attributes;
    std::string device = {};  // the folder of what it belongs to
  };
  // Returns its folder, or nothing.
  std::string Add(const Entry& entry);
  // One more attribute.
  void Add(const std::string& path, Show show);

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
  void AddText(const std::string& path, const std::string& text);

  std::map<std::string, Show> texts_;
  std::vector<std::pair<std::string, std::string>> links_;
};

}  // namespace board
