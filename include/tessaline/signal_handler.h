/**
 * @file
 * A SIGINT handler that does nothing. C++.
 *
 * RegisterHardwareInit() installs a handler of the library that shuts the device
 * down and ends the process. An application that wants SIGINT to pass without
 * effect installs this one after it.
 */
#ifndef TESSALINE_SIGNAL_HANDLER_H
#define TESSALINE_SIGNAL_HANDLER_H

#pragma GCC visibility push(default)

namespace VeltranoSDK {

/** Holds nothing; its handler and the installing of it are static. */
class SignalHandler {
 public:
  /** Does nothing. */
  SignalHandler();
  /** Does nothing. */
  ~SignalHandler();

  /** Does nothing, for any signal. */
  static void handleSignal(int signal);

  /**
   * Makes handleSignal() the process's SIGINT handler: no further signals are
   * blocked while it runs, interrupted system calls are not restarted, and the
   * handler in place before is forgotten.
   *
   * @return 0, or -1 with errno as sigaction() sets it.
   *
   * Threads: any; the handler is the whole process's.
   */
  static int install();
};

}  // namespace VeltranoSDK

#pragma GCC visibility pop

#endif
