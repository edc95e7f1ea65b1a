#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace tessaline_fuzz {

// Ends the run with a finding. It is not an assert, because the build defines NDEBUG.
inline void Require(bool holds, const char* what, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (holds) return;
  // Bypasses the streams, because a target may have replaced them.
  dprintf(STDERR_FILENO, "%s:%d: does not hold: %s\n", file, line, what);
  abort();
}

}  // namespace tessaline_fuzz
