#pragma once

#include <chrono>
#include <functional>

namespace tool {

// Ctrl-C and its like - SIGTERM, SIGQUIT, a terminal that has gone, a pipe that nobody reads
// any more - ask the tool to come to an end in order, instead of the library's own handler,
// which would end the process in the middle of a file. Who asks a second time gets
// `last_resort`, on a thread of its own, and the end of the process; the third time ends it
// at once.
void CatchInterrupts(std::function<void()> last_resort);

bool Interrupted();

// Ends the process. Only the first thread that wants to comes through.
[[noreturn]] void EndProcess(int status);

// Sleeps in real time, and wakes up for an interrupt. True when there was one.
bool PauseFor(std::chrono::milliseconds time);

}  // namespace tool
