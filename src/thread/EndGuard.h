#pragma once

#include <chrono>

namespace VeltranoSDK {

// A thread that ends the process if its shutdown hangs.
//
// It also takes SIGINT for a main() that left with pthread_exit, because the library's own threads
// block it; only if main() was noticed and did not block SIGINT.
class EndGuard {
 public:
  // Once per process; later calls do nothing. Throws std::system_error when no thread can be
  // created.
  static void Start();

  // Called by every exported start-up function, so that main()'s thread becomes known.
  static void NoticeMain();

  // For a signal handler: if the process is still running at that moment, it is ended with status
  // 0, without atexit functions or destructors and without flushing stdio's buffers.
  static void EndProcessBy(std::chrono::steady_clock::time_point moment);
};

}  // namespace VeltranoSDK
