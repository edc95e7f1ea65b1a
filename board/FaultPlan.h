#pragma once

#include <string>
#include <string_view>

namespace board {

// Plants the faults of a text on the board that is plugged in; docs/virtual-board.md has
// its words. Faults are separated by semicolons or line ends; behind a # is a comment.
//
// Returns what is wrong with the first fault that makes no sense, or nothing. Those before
// it are planted.
std::string PlantFaults(std::string_view text);

}  // namespace board
