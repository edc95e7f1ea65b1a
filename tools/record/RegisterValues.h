#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "Failure.h"
#include "record/Messages.h"

namespace tool {

// What a recording's registers hold at some moment: the last message of each.
class RegisterValues {
 public:
  // A device has some hundred.
  static constexpr std::size_t kMost = 16384;

  // `path`: of the recording, for people.
  explicit RegisterValues(std::string path) : path_(std::move(path)) {}

  // Throws Failure if there are more than any device has.
  void Set(const RegisterMessage& value) {
    values_[value.address] = value;
    if (values_.size() <= kMost) return;
    throw Failure(ExitCode::kFile, fmt::format("{}: more registers than a device has", path_),
                  "was it made by \"tessaline record\"?");
  }

  void Clear() { values_.clear(); }
  // By address.
  const std::map<std::uint64_t, RegisterMessage>& all() const { return values_; }

 private:
  const std::string path_;
  std::map<std::uint64_t, RegisterMessage> values_;
};

}  // namespace tool
