#pragma once

#include <chrono>

namespace VeltranoSDK {

// A thread that waits for the end of the process, and makes sure that it comes.
//
// It also stands in for a main() that is left with pthread_exit: without it no thread would
// be there any more to take a SIGINT, as those of the library block it. It does so if main()
// was noticed, and did not block SIGINT when it left.
class EndGuard {
 public:
  // Once a process; later calls do nothing. Throws std::system_error when there is no
  // thread left.
  static void Start();

  // On the way of every application's main thread: here it is known.
  static void NoticeMain();

  // From a signal handler: a process that is not gone by then is ended, with status 0 and
  // without atexit functions, destructors and what is left in stdio's buffers.
  static void EndProcessBy(std::chrono::steady_clock::time_point moment);
};

}  // namespace VeltranoSDK
