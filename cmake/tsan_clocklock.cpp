// The thread sanitizer of clang 14 knows pthread_mutex_timedlock and not its sister with a
// clock of choice: it would take what the lock protects for unprotected. Only in its build.
#include <pthread.h>
#include <time.h>

extern "C" int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                       const timespec* until) {
  timespec there{};
  timespec here{};
  clock_gettime(clock, &there);
  clock_gettime(CLOCK_REALTIME, &here);
  here.tv_sec += until->tv_sec - there.tv_sec;
  here.tv_nsec += until->tv_nsec - there.tv_nsec;
  constexpr long kNsPerSecond = 1'000'000'000;
  here.tv_sec += (here.tv_nsec + kNsPerSecond) / kNsPerSecond - 1;
  here.tv_nsec = (here.tv_nsec + kNsPerSecond) % kNsPerSecond;
  return pthread_mutex_timedlock(mutex, &here);
}
