#pragma once

#include <chrono>

namespace tool {

// Ctrl-C and SIGTERM ask the tool to come to an end in order, instead of the library's
// own handler, which would end the process in the middle of a file. A second one ends
// the process at once.
void CatchInterrupts();

bool Interrupted();

// Sleeps in real time, and wakes up for an interrupt. True when there was one.
bool PauseFor(std::chrono::milliseconds time);

}  // namespace tool
