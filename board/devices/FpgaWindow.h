// A mapping of register blocks that software gets from /dev/mem.
//
// Registers are not memory. Each read must return the current value, and each write must have its
// effect. So the mapping has no access rights: every load and store faults. The handler makes the
// access in the place of the processor and goes on behind the instruction. This is right for one
// access and for a mapping that a program keeps, for 8 bits and for 64, on any number of threads.
//
// LoadStore knows the plain loads and stores. Any other instruction, such as an addition to a
// register, sees the page for the length of that instruction, where the processor can be stepped.
// Then what it changed counts, and the word where it faulted if it was a write.
//
// The kernel cannot fault here: a system call that is given such an address fails with EFAULT.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "tessaline/register_map.h"

namespace board {

class FpgaModel;

// The address, or the negative errno. A mapping must start in the range of a block. What follows
// the registers reads as 0.
std::intptr_t OpenFpgaWindow(FpgaModel* fpga, VeltranoSDK::fpga::RegionBases bases,
                             std::size_t length, int protection, off_t offset);

// May be called at any time; takes no lock.
bool IsFpgaWindow(const void* address);

// Call before the range is unmapped: the handler must not find a window there once the addresses
// are free for the next mapping.
void ForgetFpgaWindows(const void* address, std::size_t length);

// Call when the FPGA is about to go. Its windows then read as all ones.
void LoseFpga(const FpgaModel* fpga);

// In the child of a fork. The threads that were using a window do not exist there.
void CloseFpgaWindowsAfterFork();

// Sets the protection of the window at this address. Returns 0.
int ProtectFpgaWindow(const void* address, int protection);

// The part of the window that starts at this address. 0: none does.
std::size_t FpgaWindowBytes(const void* address);

}  // namespace board
