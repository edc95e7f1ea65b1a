#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace board {

// What the board has below /dev and /sys, as `ls -l` shows it. The folders of a path come by
// themselves.
class FileTree {
 public:
  struct Node {
    mode_t mode = 0;  // type and rights
    dev_t device = 0;
    std::string target;  // of a link

    bool IsFolder() const { return S_ISDIR(mode); }
    bool IsLink() const { return S_ISLNK(mode); }
  };
  using Child = std::pair<std::string, const Node*>;

  // A character device.
  void AddDevice(const std::string& path, unsigned major, unsigned minor);
  // An attribute.
  void AddFile(const std::string& path, bool readable, bool writable);
  // `target` is absolute.
  void AddLink(const std::string& path, const std::string& target);

  // Null: the board has no such thing. `path` is absolute, without dots and links.
  const Node* Find(const std::string& path) const;
  std::vector<Child> In(const std::string& folder) const;
  std::vector<std::string> Paths() const;

 private:
  void Add(const std::string& path, Node node);

  std::map<std::string, Node> nodes_;
};

}  // namespace board
