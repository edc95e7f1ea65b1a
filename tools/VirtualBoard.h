#pragma once

#include <string>

namespace tool {

// Plugs in the virtual board of a model, so that everything that follows finds its
// device nodes. The first time this starts the program anew, with the board loaded in
// front of the C library. A Failure when the board cannot be found, or knows no such
// model.
void PlugInVirtualBoard(const std::string& model, char** argv);

// The same when the environment names a model (TESSALINE_BOARD); nothing otherwise.
void PlugInBoardOfEnvironment(char** argv);

}  // namespace tool
