#pragma once

#include <filesystem>
#include <string>

#include "Descriptor.h"

namespace runner {

// The library that is preloaded.
class BoardLibrary {
 public:
  // Looks beside this program, and where it is installed with it. Throws Failure.
  BoardLibrary();

  // A value for LD_PRELOAD: the library, and behind it what this process has there, without other
  // boards. The loader splits the value at blanks and colons, so the library may go by another
  // name, which exists as long as this object.
  std::string Preload() const;
  int descriptor() const { return opened_.number(); }

 private:
  std::string Name() const;

  std::filesystem::path path_;
  Descriptor opened_;
};

}  // namespace runner
