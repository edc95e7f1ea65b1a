#pragma once

#include <concepts>
#include <string>
#include <utility>

namespace tool {

// What is read as one recording: a file, or what it has of one sensor.
struct BagSource {
  // Anything that is a path alone is meant to be one.
  template <std::convertible_to<std::string> Path>
  BagSource(Path file, std::string of = {})  // NOLINT(google-explicit-constructor)
      : path(std::move(file)), sensor(std::move(of)) {}

  // For people.
  std::string Name() const { return sensor.empty() ? path : path + " (" + sensor + ")"; }

  std::string path;
  std::string sensor;  // as of BagReader
};

}  // namespace tool
