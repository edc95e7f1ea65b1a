/* An application to be recorded, or to be fed with a recording: MODEL WHAT [NUMBER].
 *
 * Takes strips, or images with a WHAT that begins with "image". After 20 of them it does WHAT:
 *   exit: ends with NUMBER        kill: sends itself signal NUMBER
 *   wait: goes on until SIGTERM   twice: stops for a moment, and takes NUMBER more
 * It says what it does on standard output, and each trigger. */
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tessaline/tessaline.h>
#include <time.h>
#include <unistd.h>

static atomic_ullong seen;
static volatile sig_atomic_t ended;

static void on_frames(unsigned int first, unsigned int second, void* data) {
  (void)first;
  (void)second;
  (void)data;
  atomic_fetch_add(&seen, 1);
}

static void on_trigger(unsigned int level) {
  printf("trigger %u\n", level);
  fflush(stdout);
}

static void on_end(int number) { ended = number; }

static void wait_for(unsigned long long frames) {
  while (atomic_load(&seen) < frames && !ended) {
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += 1000000; /* to a moment: the virtual board can skip other sleeps */
    if (until.tv_nsec >= 1000000000) {
      ++until.tv_sec;
      until.tv_nsec -= 1000000000;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, NULL);
  }
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const char* what = argv[2];
  const int number = argc > 3 ? atoi(argv[3]) : 0;
  const int images = strncmp(what, "image", 5) == 0;
  if (images) what += 5;

  GetLibVersion(argv[1]);
  RegisterEventHandler(TESSALINE_EVENT_STRIP, (tessaline_event_handler)on_frames);
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, (tessaline_event_handler)on_frames);
  RegisterEventHandler(TESSALINE_EVENT_EXTERNAL_TRIGGER, (tessaline_event_handler)on_trigger);
  if (RegisterHardwareInit() != 0) return 3;
  signal(SIGINT, on_end);
  signal(SIGTERM, on_end);
  SetCollectMode(images);
  SetTriMode(0);
  SetTriSpacing(4321);
  SetExtTriggerState(1);
  SetGlobalControl(1);
  puts("started");
  fflush(stdout);
  wait_for(20);
  if (strcmp(what, "kill") == 0) {
    printf("pid %d\n", getpid());
    fflush(stdout);
    signal(number, SIG_DFL);
    kill(getpid(), number);
  }
  if (strcmp(what, "wait") == 0) wait_for(~0ull);
  if (strcmp(what, "twice") == 0) {
    SetGlobalControl(0);
    sleep(1);
    SetGlobalControl(1);
    wait_for(atomic_load(&seen) + (unsigned)number);
  }
  SetGlobalControl(0);
  printf("ended by %d\n", (int)ended);
  return number;
}
