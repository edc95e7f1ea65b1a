#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace tool::serve {

// A program of this project: in the folder of this one, else looked up in PATH.
std::string ProgramBeside(const std::string& name);

// Starts a program that needs nobody: without a terminal's signals, with our standard error, with
// `input` and `output` as its standard streams (-1: none). `on_board`: on our virtual board's
// model, if there is one; otherwise without any. Throws a Failure.
pid_t Spawn(const std::vector<std::string>& words,
            const std::vector<std::pair<std::string, std::string>>& variables, bool on_board,
            int input = -1, int output = -1);

}  // namespace tool::serve
