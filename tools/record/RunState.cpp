#include "record/RunState.h"

#include <algorithm>

namespace tool {

void RunState::Learn(const ring::Record& record) {
  if (record.kind == ring::Kind::kRegister) {
    registers_[record.first] = static_cast<std::uint32_t>(record.second);
  } else if (record.kind == ring::Kind::kDevice) {
    std::string json(reinterpret_cast<const char*>(record.payload.data()), record.payload.size());
    // The last of several equal ones counts, and an application may tell its model again and again.
    std::erase(device_, json);
    device_.push_back(std::move(json));
  }
}

void RunState::WriteTo(RecordingFile& file, std::int64_t stamp_ns) const {
  for (const std::string& json : device_) file.WriteDevice(stamp_ns, json);
  for (const auto& [address, value] : registers_) {
    file.Write({ring::Kind::kRegister, stamp_ns, address, value, {}});
  }
}

}  // namespace tool
