#pragma once

#include <string>
#include <string_view>

namespace board {

// Plants faults, given as text (see docs/virtual-board.md), on the current board. Faults are
// separated by semicolons or line ends; # starts a comment.
//
// Returns what is wrong with the first invalid fault, or an empty text. The faults before it are
// planted.
std::string PlantFaults(std::string_view text);

}  // namespace board
