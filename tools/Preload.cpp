#include "Preload.h"

#include <dlfcn.h>
#include <fmt/core.h>

#include <filesystem>
#include <vector>

#include "Failure.h"
#include "VirtualBoard.h"
#include "tessaline/startup.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Directories() {
  std::vector<fs::path> directories;
  std::error_code ignored;
  const fs::path program = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  directories.push_back(program);
  directories.push_back(program.parent_path() / "lib");
  // Where the library itself was found, or, while this command is recorded, what stands in front of
  // it, which has a folder of its own there.
  Dl_info library;
  if (dladdr(reinterpret_cast<void*>(&GetLibVersion), &library) != 0) {
    const fs::path folder = fs::absolute(library.dli_fname, ignored).parent_path();
    directories.push_back(folder);
    directories.push_back(folder.parent_path());
  }
  return directories;
}

}  // namespace

std::string FindLibrary(const PreloadedLibrary& library) {
  std::error_code ignored;
  for (const fs::path& directory : Directories()) {
    for (const char* file : library.files) {
      for (const fs::path& path : {directory / file, directory / "tessaline" / file}) {
        if (fs::exists(path, ignored)) return path;
      }
    }
  }
  throw Failure(ExitCode::kUnreachable, fmt::format("{} was not found", library.what),
                fmt::format("install the package {}, or build the target {}", library.package,
                            library.target));
}

std::string InFrontOf(const std::string& path) {
  const std::string others = Environment("LD_PRELOAD");
  return others.empty() ? path : fmt::format("{}:{}", path, others);
}

std::string Behind(const std::string& path) {
  const std::string others = Environment("LD_PRELOAD");
  return others.empty() ? path : fmt::format("{}:{}", others, path);
}

}  // namespace tool
