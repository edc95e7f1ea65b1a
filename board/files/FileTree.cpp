#include "files/FileTree.h"

#include <sys/sysmacros.h>

namespace board {
namespace {

constexpr mode_t kFolderMode = S_IFDIR | 0755;
constexpr mode_t kDeviceMode = S_IFCHR | 0660;
constexpr mode_t kLinkMode = S_IFLNK | 0777;

}  // namespace

std::vector<std::string> FileTree::Paths() const {
  std::vector<std::string> paths;
  for (const auto& [path, node] : nodes_) paths.push_back(path);
  return paths;
}

void FileTree::Add(const std::string& path, Node node) {
  for (std::size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1)) {
    nodes_.try_emplace(path.substr(0, end), Node{kFolderMode, 0, {}});
  }
  nodes_.insert_or_assign(path, std::move(node));
}

void FileTree::AddDevice(const std::string& path, unsigned major, unsigned minor) {
  Add(path, {kDeviceMode, makedev(major, minor), {}});
}

void FileTree::AddFile(const std::string& path, bool readable, bool writable) {
  const mode_t mode = S_IFREG | (readable ? 0444 : 0) | (writable ? 0200 : 0);
  Add(path, {mode, 0, {}});
}

void FileTree::AddLink(const std::string& path, const std::string& target) {
  Add(path, {kLinkMode, 0, target});
}

const FileTree::Node* FileTree::Find(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? nullptr : &found->second;
}

std::vector<FileTree::Child> FileTree::In(const std::string& folder) const {
  std::vector<Child> children;
  const std::string prefix = folder + '/';
  for (auto node = nodes_.lower_bound(prefix);
       node != nodes_.end() && node->first.starts_with(prefix); ++node) {
    const std::string name = node->first.substr(prefix.size());
    if (name.find('/') == name.npos) children.emplace_back(name, &node->second);
  }
  return children;
}

}  // namespace board
