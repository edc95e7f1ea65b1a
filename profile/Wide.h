#pragma once

namespace profile {

// Every x86-64 has vectors of four floats; nearly all have eight, and an instruction that
// multiplies and adds. The loops are compiled for both. Other processors have one kind.
#if defined(__x86_64__)
#define TESSALINE_PROFILE_WIDE [[gnu::target("avx2,fma"), gnu::flatten]]
inline bool HasWideVectors() {
  return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
}
#else
#define TESSALINE_PROFILE_WIDE [[gnu::flatten]]
constexpr bool HasWideVectors() { return false; }
#endif

}  // namespace profile
