/**
 * @file
 * A SIGINT handler that does nothing. C++.
 *
 * RegisterHardwareInit() installs the library's handler, which shuts the device down and
 * ends the process. An application that wants SIGINT to have no effect installs this one
 * afterwards.
 */
#ifndef TESSALINE_SIGNAL_HANDLER_H
#define TESSALINE_SIGNAL_HANDLER_H

#pragma GCC visibility push(default)

namespace VeltranoSDK {

/** Has no state; the handler and install() are static. */
class SignalHandler {
 public:
  /** Does nothing. */
  SignalHandler();
  /** Does nothing. */
  ~SignalHandler();

  /** Does nothing, for any signal. */
  static void handleSignal(int signal);

  /**
   * Makes handleSignal() the process's SIGINT handler. While it runs, no further signals
   * are blocked. Interrupted system calls are not restarted. The previous handler is
   * forgotten.
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
