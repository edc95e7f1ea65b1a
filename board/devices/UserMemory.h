// The kernel's copies between itself and a program: a bad address is an error, not a crash.
#pragma once

#include <cstddef>

namespace board {

// False: the address is not mapped, or may not be accessed in this way.
bool CopyFromUser(void* to, const void* from, std::size_t size);
bool CopyToUser(void* to, const void* from, std::size_t size);

// Takes no system call. False for addresses that no program has, such as null or -1.
bool IsUserAddress(const void* address, std::size_t size);

// Whether all of a program's memory from `address` on exists, and whether it may be written.
bool IsMapped(void* address, std::size_t size);
bool IsWritable(void* address, std::size_t size);

}  // namespace board
