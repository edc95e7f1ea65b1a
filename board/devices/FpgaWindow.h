#pragma once

#include <cstddef>

#include "tessaline/register_map.h"

namespace board {

class FpgaModel;

// A mapping of one register block as software gets it from /dev/mem.
//
// Registers are not memory: reading one has to give its value of this moment, and
// writing one has to do something. So the mapping starts without any access
// right. The first touch is caught, filled with the registers' live values and
// opened for reading; a touch that still does not get through was a store, and
// the mapping is opened for writing. When it is unmapped, the access is known: its
// register, its kind and its value. This needs no knowledge of the processor's
// instructions. It is exact for the way registers are accessed here, one access a
// mapping; of several in one mapping the first read and all changed words count.

// The address, or the negative errno.
std::ptrdiff_t OpenFpgaWindow(FpgaModel* fpga, VeltranoSDK::fpga::Block block, std::size_t length);

// Callable at any time, takes no lock.
bool IsFpgaWindow(const void* address);

// Unmaps, and lets the model and the transcript have the access. 0.
int CloseFpgaWindow(void* address);

}  // namespace board
