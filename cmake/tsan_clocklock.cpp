// The thread sanitizer of clang 14 knows pthread_mutex_timedlock, but not the function that also
// takes a clock. Without this replacement it would treat the protected data as unprotected. Only
// the thread sanitizer's build uses this file.
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
