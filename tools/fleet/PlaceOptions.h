#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

namespace tool::fleet {

// How the server is to store a sensor's messages.
struct PlaceOptions {
  unsigned replicas = 0;  // 0: three, or as many as there are servers for
  double megabytes = 0;   // 0: as many as the server has room for

  void Describe(CLI::App& app);
  std::uint64_t MostBytes() const { return static_cast<std::uint64_t>(megabytes * 1e6); }
};

}  // namespace tool::fleet
