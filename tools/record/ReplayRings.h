#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ring/RecordRing.h"

namespace tool {

// What the virtual board takes frames from that it did not make itself: rings of images, strips,
// events, and of the state at the beginning. Frames of another process wait here.
class ReplayRings {
 public:
  // Throws a Failure if there is no memory.
  ReplayRings();

  ring::RecordRing images, strips, events, state;

  // The variables for a program with the board in front, which is handed these frames as those of a
  // product. `speed`: how much faster than their stamps say; 0: as they come.
  using Variables = std::vector<std::pair<std::string, std::string>>;
  Variables VariablesFor(const std::string& model, double speed) const;

 private:
  std::string Paths() const;
};

}  // namespace tool
