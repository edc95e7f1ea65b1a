#include "VirtualBoard.h"

#include <dlfcn.h>
#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "Failure.h"
#include "Models.h"
#include "tessaline/startup.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr std::array kNames{"libtessaline-board.so", "libtessaline-board.so.1"};
constexpr const char* kMark = "TESSALINE_TOOL_STARTED_ANEW";

std::vector<fs::path> Directories() {
  std::vector<fs::path> directories;
  std::error_code ignored;
  const fs::path program = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  directories.push_back(program);
  directories.push_back(program.parent_path() / "lib");
  // Where the library itself was found.
  Dl_info library;
  if (dladdr(reinterpret_cast<void*>(&GetLibVersion), &library) != 0) {
    directories.push_back(fs::absolute(library.dli_fname, ignored).parent_path());
  }
  return directories;
}

std::string FindBoard() {
  std::error_code ignored;
  for (const fs::path& directory : Directories()) {
    for (const char* name : kNames) {
      if (fs::exists(directory / name, ignored)) return directory / name;
    }
  }
  throw Failure(ExitCode::kUnreachable, "the virtual board, libtessaline-board.so, was not found",
                "install the package tessaline-board, or build the target tessaline-board");
}

bool BoardIsLoaded() { return dlsym(RTLD_DEFAULT, "tessaline_board_select") != nullptr; }

void Preload(std::string library) {
  if (const char* others = getenv("LD_PRELOAD"); others != nullptr && *others != '\0') {
    library += fmt::format(":{}", others);
  }
  setenv("LD_PRELOAD", library.c_str(), 1);
}

void StartAnew(char** argv) {
  if (!BoardIsLoaded()) Preload(FindBoard());
  setenv(kMark, "1", 1);
  execv("/proc/self/exe", argv);
  throw Failure(ExitCode::kUnreachable,
                fmt::format("cannot start with the virtual board: {}", strerror(errno)));
}

}  // namespace

void PlugInVirtualBoard(const std::string& model, char** argv) {
  Model(model).Require();
  const char* const before = getenv("TESSALINE_BOARD");
  if (BoardIsLoaded() && before != nullptr && model == before) return;
  setenv("TESSALINE_BOARD", model.c_str(), 1);
  if (getenv(kMark) != nullptr) {
    throw Failure(ExitCode::kUnreachable, "the virtual board cannot be loaded into this program");
  }
  StartAnew(argv);
}

void PlugInBoardOfEnvironment(char** argv) {
  const char* const model = getenv("TESSALINE_BOARD");
  if (model == nullptr || *model == '\0' || BoardIsLoaded()) return;
  PlugInVirtualBoard(model, argv);
}

}  // namespace tool
