#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "record/RecordingFile.h"
#include "ring/RecordRing.h"

namespace tool {

// What a recording that begins in the middle of a run has to say first: what the device is, and the
// registers' values.
class RunState {
 public:
  void Learn(const ring::Record& record);
  void WriteTo(RecordingFile& file, std::int64_t stamp_ns) const;

 private:
  std::vector<std::string> device_;  // JSON objects, in order
  std::map<std::uint64_t, std::uint32_t> registers_;
};

}  // namespace tool
