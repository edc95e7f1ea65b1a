#include "Descriptor.h"

#include <fmt/core.h>

#include <filesystem>

#include "Failure.h"

namespace runner {

std::string Descriptor::Path() const {
  std::error_code error;
  // This process's number where /proc was mounted, which may be another one than its own.
  const auto self = std::filesystem::read_symlink("/proc/self", error);
  if (error) {
    throw Failure(ExitCode::kCannotRun,
                  "/proc is not there, where programs find their board; mount it, or give each a "
                  "board of its own with --private");
  }
  return fmt::format("/proc/{}/fd/{}", self.native(), number_);
}

}  // namespace runner
