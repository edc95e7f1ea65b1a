#pragma once

namespace storm {

// What the interrupted application does with the library.

// Chooses a region for the product. Call before anything else.
void ChooseRegion(const char* model);

void OnTrigger(unsigned level);

// Sets and reads some registers.
void RegisterTraffic(unsigned i);

// Changes settings of all kinds in turn, for ever. All of them take a second, and every process
// begins with a different one, so every moment can be hit.
[[noreturn]] void ChangeSettings();

// Prints `what` on standard error and ends the process as failed.
[[noreturn]] void Fail(const char* what);

}  // namespace storm
