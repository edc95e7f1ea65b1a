#include "BoardLibrary.h"

#include <fcntl.h>
#include <fmt/core.h>

#include <array>
#include <cstdlib>
#include <string_view>

#include "Failure.h"

namespace runner {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFile = "libtessaline-board.so";

fs::path FindLibrary() {
  std::error_code ignored;
  const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  const fs::path installed =
      here / TESSALINE_LIBDIR_FROM_BINDIR / fmt::format("{}.{}", kFile, TESSALINE_VERSION_MAJOR);
  for (const fs::path& path : {here / kFile, installed}) {
    if (fs::exists(path, ignored)) return path.lexically_normal();
  }
  throw Failure(ExitCode::kUsage,
                fmt::format("{} is missing; install the package tessaline-board, or build the "
                            "target tessaline-board",
                            installed.lexically_normal().native()));
}

// Of a run that this one is inside of.
bool IsBoard(const std::string& entry, const fs::path& library) {
  std::error_code ignored;
  return fs::equivalent(entry, library, ignored) ||
         fs::canonical(entry, ignored).filename().native().starts_with(kFile);
}

}  // namespace

BoardLibrary::BoardLibrary()
    : path_(FindLibrary()), opened_(open(path_.c_str(), O_PATH | O_CLOEXEC)) {
  if (!opened_.IsOpen()) {
    throw Failure(ExitCode::kUsage, fmt::format("{} cannot be opened", path_.native()));
  }
}

std::string BoardLibrary::Name() const {
  // The loader also replaces words behind a dollar.
  const bool plain = path_.native().find_first_of(": \t\n$") == std::string::npos;
  return plain ? path_.native() : opened_.Path();
}

std::string BoardLibrary::Preload() const {
  std::string value = Name();
  const char* const given = std::getenv("LD_PRELOAD");
  std::string_view rest = given == nullptr ? "" : given;
  while (!rest.empty()) {
    const std::string entry(rest.substr(0, rest.find_first_of(": ")));
    rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
    if (!entry.empty() && !IsBoard(entry, path_)) value += ':' + entry;
  }
  return value;
}

}  // namespace runner
