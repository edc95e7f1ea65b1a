#pragma once

#include <string>

namespace tool {

// A variable of the environment; empty if there is none.
std::string Environment(const char* name);

// What the command line says about the virtual board; empty where it says nothing.
struct VirtualBoard {
  std::string model;
  std::string optics;
  std::string scene;
};

// Plugs in this board, so that everything after this finds its device nodes. The environment says
// what the command line does not. Does nothing if neither names a model. The first time, this
// restarts the program with the board loaded in front of the C library. Throws a Failure if the
// board cannot be found or does not know the model, or if there are optics or a scene without it.
void PlugInVirtualBoard(const VirtualBoard& wanted, char** argv);

// What is wrong with a value of --optics or --scene, or an empty text.
std::string WrongOptics(const std::string& text);
std::string WrongScene(const std::string& text);

// Whether the virtual board's camera, if there is one, sees without perspective, distortion and
// noise.
bool VirtualOpticsAreIdeal();

}  // namespace tool
