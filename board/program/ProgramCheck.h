#pragma once

#include <limits.h>

#include <array>
#include <cstddef>
#include <string_view>

// Whether a program would run on the board. The board is a library that the program's dynamic
// loader loads, so not every program can have it. The board asks in the child of a vfork, too: this
// code allocates nothing and makes plain system calls.
namespace board {

// What keeps the board out of a program.
enum class Obstacle {
  kNone,
  kStatic,
  kOtherMachine,
  kOtherLoader,
  kOtherRights,
  kCapabilities,
  kUnreadable,
};

// As the end of a sentence about the program, and what its user can do.
struct ObstacleText {
  std::string_view what;
  std::string_view advice;
};
ObstacleText TextOf(Obstacle obstacle);

using PathBuffer = std::array<char, PATH_MAX>;

struct CheckedProgram {
  bool runs = false;  // as far as the kernel tells before it reads the file
  Obstacle obstacle = Obstacle::kNone;
  bool is_interpreter = false;  // it is the obstacle of a script's interpreter
  PathBuffer interpreter{};     // this one
};

// Looks at what an exec of this file would run: for a script its interpreter, and for one of `env`
// the program that it looks up in `search_path` (PATH; may be null). What the kernel refuses to run
// has no obstacle; its error says more.
void CheckProgram(int directory, const char* path, const char* search_path, CheckedProgram& found);

// Looks a program up in `search_path`, as execvp does. Returns 0, or the errno of the failure.
int FindProgramFile(std::string_view name, const char* search_path, PathBuffer& found);

// Where an open file can be opened again.
class DescriptorPath {
 public:
  explicit DescriptorPath(int file);
  const char* text() const { return text_.data(); }

 private:
  std::array<char, 32> text_{"/proc/self/fd/"};
};

// The last part of a path.
std::string_view FileName(std::string_view path);

}  // namespace board
