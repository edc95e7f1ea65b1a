// A mapping of one register block that software gets from /dev/mem.
//
// Registers are not memory. A read must return the current value, and a write must have an effect.
// The solution is to let the processor fault twice. A new mapping has no access rights. The first
// access faults. The handler fills the page with the registers' live values and makes it readable.
// If the access was a read, it now succeeds. If it was a write, it faults again, and the handler
// makes the page writable. When the page is unmapped, the two faults show which register was
// accessed and how, and the page holds the value.
//
// No instruction is decoded, so this works on any processor. It is exact for one access per
// mapping, which is how the library accesses registers. If one mapping has several accesses, the
// first read and all changed words count.
#pragma once

#include <cstddef>

#include "tessaline/register_map.h"

namespace board {

class FpgaModel;

// The address, or the negative errno.
std::ptrdiff_t OpenFpgaWindow(FpgaModel* fpga, VeltranoSDK::fpga::Block block, std::size_t length);

// May be called at any time; takes no lock.
bool IsFpgaWindow(const void* address);

// Unmaps the window, and passes the access on to the model and the transcript. Returns 0.
int CloseFpgaWindow(void* address);

}  // namespace board
