#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "record/BagSource.h"

namespace tool {

// The recording that a sub-command reads.
class RecordingOption {
 public:
  // Adds the file's name, and which sensor of it is meant.
  void Describe(CLI::App& command) {
    command.add_option("recording", path_, "The recording")->type_name("RECORDING")->required();
    command.add_option("--sensor", sensor_, "Which one, in a file of several sensors")
        ->type_name("NAME");
  }

  const std::string& path() const { return path_; }
  BagSource source() const { return {path_, sensor_}; }

 private:
  std::string path_;
  std::string sensor_;
};

}  // namespace tool
