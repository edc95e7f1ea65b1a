#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "Registers.h"
#include "tessaline/log.h"

namespace tool {

// Listens to the library's log at its lowest level, and keeps register accesses by name with the
// functions that made them.
//
// Lives to the end of the process: a sink cannot be removed.
class Tracer {
 public:
  explicit Tracer(const Model& model) : registers_(model) {}
  void Listen();

  struct Line {
    bool access;  // else: the name of a function
    bool write;   // of an access
    std::uint32_t address;
    std::string text;  // "IMAGE_BLOCK_1 TRIGGER_CTRL", or the function's name
  };
  // What was heard so far.
  std::vector<Line> Lines();

 private:
  static void Sink(log_Event* event);
  Line Decode(const std::string& text) const;

  Registers registers_;
  std::mutex mutex_;
  std::vector<Line> lines_;
};

}  // namespace tool
