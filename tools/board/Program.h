#pragma once

#include <string>
#include <vector>

namespace runner {

// Returns the file that a shell would run for this name. Throws Failure if there is none, or if it
// would run without the board.
std::string FindProgram(const std::string& name);

// Runs it as if the user had started it, with this process as its parent: signals are passed on,
// the terminal's job control acts on both, and it does not outlive this process. Returns what a
// shell would report. Throws Failure. Of this process's open files only `kept` stay open; a
// negative number is none.
int RunProgram(const std::string& file, const std::vector<std::string>& words,
               const std::vector<int>& kept);

}  // namespace runner
