#pragma once

#include <string>

namespace tool {

// Plugs in the virtual board of a model, so that everything after this finds its device nodes. The
// first time, this restarts the program with the board loaded in front of the C library. Throws
// a Failure if the board cannot be found or does not know the model.
void PlugInVirtualBoard(const std::string& model, char** argv);

// The same when the environment names a model (TESSALINE_BOARD); nothing otherwise.
void PlugInBoardOfEnvironment(char** argv);

}  // namespace tool
