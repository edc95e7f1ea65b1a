#pragma once

#include <string>
#include <vector>

#include "Models.h"

namespace tool {

// A file of the kernel that the library opens.
struct Node {
  std::string path;
  int open_flags;
  std::string purpose;
  std::string advice;  // when it is missing
};

// All files that a product needs, in order of importance. The watchdog is left out: opening it
// arms it.
std::vector<Node> NodesOf(const Family& family);

// 0, or the errno if it cannot be opened. Nothing is read or written.
int TryToOpen(const Node& node);

// What to do about it.
std::string AdviceFor(const Node& node, int error);

// Whether this machine is a sensor board at all. The registers are physical addresses, which mean
// something else on any other machine.
bool IsABoard(const Family& family);

}  // namespace tool
