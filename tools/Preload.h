#pragma once

#include <array>
#include <string>

namespace tool {

// A library of this project that is loaded in front of a program.
struct PreloadedLibrary {
  std::array<const char*, 2> files;
  const char* what;
  const char* package;
  const char* target;  // of the build
};

inline constexpr PreloadedLibrary kBoardLibrary{
    {"libtessaline-board.so", "libtessaline-board.so.1"},
    "the virtual board, libtessaline-board.so,",
    "tessaline-board",
    "tessaline-board"};
inline constexpr PreloadedLibrary kRecorderLibrary{
    {"libtessaline-recorder.so", "libtessaline-recorder.so"},
    "what stands in front of an application, libtessaline-recorder.so,",
    "tessaline-tools",
    "tessaline-recorder"};

// Looks beside this program and beside the device library, and there in the folder "tessaline":
// what nobody links with has no place among the system's libraries. Throws Failure if it is not
// there.
std::string FindLibrary(const PreloadedLibrary& library);

// A value for LD_PRELOAD that adds `path` in front of what this process has there.
std::string InFrontOf(const std::string& path);

// The same, behind it.
std::string Behind(const std::string& path);

}  // namespace tool
