/* Keeps the laser off when nobody looks after it: before Ctrl-C, kill, a closed terminal or a closed
 * pipe end the process, and while the terminal stops it (Ctrl-Z). SIGKILL, SIGSTOP and a crash leave
 * it as it is. For C and C++. */
#pragma once

#include <errno.h>
#include <signal.h>
#include <stddef.h>
#include <tessaline/tessaline.h>

static volatile sig_atomic_t laser_wanted;
static void (*library_ends)(int); /* the library's own way to end the process at Ctrl-C */

/* OpenLaser() and CloseLaser() may be called in a signal handler. */
static inline void laser_ends(int number) {
  laser_wanted = 0; /* not even when Ctrl-Z comes before the end */
  CloseLaser();
  library_ends(number);
}

static inline void laser_pauses(int number) {
  const int error = errno;
  sigset_t only, before;
  sigemptyset(&only);
  sigaddset(&only, number);
  CloseLaser();
  signal(number, SIG_DFL);
  raise(number);
  pthread_sigmask(SIG_UNBLOCK, &only, &before); /* stops here */
  pthread_sigmask(SIG_SETMASK, &before, NULL);
  signal(number, laser_pauses);
  if (laser_wanted) OpenLaser();
  errno = error;
}

/* Call it after RegisterHardwareInit(), which installs the library's handler. */
static inline int laser_on(void) {
  if (!library_ends) {
    library_ends = signal(SIGINT, laser_ends);
    signal(SIGTERM, laser_ends);
    signal(SIGQUIT, laser_ends);
    signal(SIGPIPE, laser_ends);
    if (signal(SIGHUP, laser_ends) == SIG_IGN) signal(SIGHUP, SIG_IGN); /* nohup */
    signal(SIGTSTP, laser_pauses);
    signal(SIGTTIN, laser_pauses);
    signal(SIGTTOU, laser_pauses);
  }
  laser_wanted = 1;
  return OpenLaser();
}

static inline int laser_off(void) {
  laser_wanted = 0;
  return CloseLaser();
}
