#pragma once

namespace storm {

// What the interrupted application does with the library.

// Chosen by the product, before anything else is called.
void ChooseRegion(const char* model);

void OnTrigger(unsigned level);

// Some registers are set and read.
void RegisterTraffic(unsigned i);

// Settings of all kinds in turn, for ever. All of them take a second; every process begins
// with another one, so that no moment is out of reach.
[[noreturn]] void ChangeSettings();

// Says so on the standard error stream and ends the process in failure.
[[noreturn]] void Fail(const char* what);

}  // namespace storm
