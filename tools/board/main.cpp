// tessaline-board: runs a program on the virtual board.

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include "BoardLibrary.h"
#include "Descriptor.h"
#include "Failure.h"
#include "Options.h"
#include "Program.h"

namespace runner {
namespace {

namespace fs = std::filesystem;

constexpr const char* kShared = "TESSALINE_BOARD_SHARED";
constexpr const char* kState = "TESSALINE_BOARD_STATE";

void Set(const char* variable, const std::string& value) {
  if (!value.empty()) setenv(variable, value.c_str(), 1);
}

fs::path AbsolutePath(const std::string& path) {
  if (path.empty()) return {};
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  if (!error) return absolute.lexically_normal();
  throw Failure(ExitCode::kUsage,
                fmt::format("{}: the working folder is gone: {}", path, error.message()));
}

// Makes the folder if there is none.
fs::path StateFolder(const std::string& given) {
  if (given.empty()) return {};
  fs::path folder = AbsolutePath(given);
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) {
    throw Failure(ExitCode::kUsage, fmt::format("--state: cannot make the folder {}: {}",
                                                folder.native(), error.message()));
  }
  if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("--state: the folder {} is not writable", folder.native()));
  }
  return folder;
}

// The memory that the board's programs share. The first of them gives it its size.
Descriptor SharedMemory() {
  Descriptor memory(memfd_create("tessaline-board", MFD_CLOEXEC));
  if (!memory.IsOpen()) {
    throw Failure(ExitCode::kCannotRun,
                  "there is no shared memory for the board; give each program a board of its own "
                  "with --private");
  }
  return memory;
}

// Empty folders for programs whose working folder is one that only the board has. The first of them
// makes the folder.
class EmptyFolders {
 public:
  EmptyFolders() {
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error) return;
    std::random_device random;
    const std::uint64_t number = std::uint64_t{random()} << 32 | random();
    folder_ = (temporary / fmt::format("tessaline-board-{:016x}", number)).native();
  }
  ~EmptyFolders() {
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
  }
  EmptyFolders(const EmptyFolders&) = delete;
  EmptyFolders& operator=(const EmptyFolders&) = delete;

  // Empty if there is no place for them.
  const std::string& Path() const { return folder_; }

 private:
  std::string folder_;
};

int Run(const Options& options) {
  if (getauxval(AT_SECURE) != 0) {
    throw Failure(ExitCode::kCannotRun,
                  "programs would run without the virtual board, because this command has the "
                  "rights of another user or file capabilities; install it without them");
  }
  const BoardLibrary library;
  const std::string file = FindProgram(options.program().front());
  const EmptyFolders folders;
  const Descriptor memory = options.is_private() ? Descriptor() : SharedMemory();

  Set("LD_PRELOAD", library.Preload());
  Set("TESSALINE_BOARD", options.model());
  Set("TESSALINE_BOARD_FOLDERS", folders.Path());
  for (const auto& [variable, value] : options.settings()) Set(variable, value);
  Set("TESSALINE_BOARD_TRANSCRIPT", AbsolutePath(options.transcript()));
  if (options.is_strict()) Set("TESSALINE_BOARD_STRICT", "1");
  // Inside another run this is another board, which does not share the other one's folder.
  if (std::getenv(kShared) != nullptr) unsetenv(kState);
  Set(kState, StateFolder(options.state()));
  unsetenv(kShared);
  if (memory.IsOpen()) Set(kShared, memory.Path());
  return RunProgram(file, options.program(), {library.descriptor(), memory.number()});
}

}  // namespace
}  // namespace runner

int main(int argc, char** argv) {
  runner::Options options;
  try {
    options.Parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return options.Explain(error);
  }
  try {
    return runner::Run(options);
  } catch (const runner::Failure& failure) {
    fmt::print(stderr, "tessaline-board: {}\n", failure.what());
    return static_cast<int>(failure.code());
  }
}
