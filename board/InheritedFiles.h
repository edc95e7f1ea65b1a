#pragma once

#include "Board.h"

namespace board {

// A descriptor without a sign tells which file it stands for, so that a program that inherits it
// ("echo 1 > /sys/class/gpio/export" with an echo that is a program) can open that file itself:
// the count of its eventfd.
unsigned MarkOf(const std::string& path, int flags);

// Opens the files that the process has inherited. Positions start at 0, and a device that only one
// program can have open stays with the program that opened it.
void OpenInheritedFiles(const Board& board);

}  // namespace board
