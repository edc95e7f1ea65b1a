/* The laser, off whenever nobody looks after it: before Ctrl-C, kill or a closed terminal end the
 * process, and while Ctrl-Z holds it. Only SIGKILL leaves it as it is. For C and C++. */
#pragma once

#include <errno.h>
#include <signal.h>
#include <stddef.h>
#include <tessaline/tessaline.h>

static volatile sig_atomic_t laser_wanted;
static void (*library_ends)(int); /* the library's own way to end the process at Ctrl-C */

/* OpenLaser() and CloseLaser() may be called in a signal handler. */
static inline void laser_ends(int number) {
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
  library_ends = signal(SIGINT, laser_ends);
  signal(SIGTERM, laser_ends);
  signal(SIGQUIT, laser_ends);
  signal(SIGHUP, laser_ends);
  signal(SIGTSTP, laser_pauses);
  laser_wanted = 1;
  return OpenLaser();
}

static inline int laser_off(void) {
  laser_wanted = 0;
  return CloseLaser();
}
