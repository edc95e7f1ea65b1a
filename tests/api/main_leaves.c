/* A process of which only handlers are left: main() is over, by pthread_exit. Ctrl-C ends it,
 * unless main() blocked SIGINT, as programs do that wait for signals in a thread of their
 * own ("blocked"). Start-up may have run on another thread ("elsewhere"). */
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "tessaline/board.h"
#include "tessaline/tessaline.h"

static void wait_ms(long milliseconds) {
  const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&time, NULL);
}

static void* start_up(void* unused) {
  if (RegisterHardwareInit() != 0) _exit(99);
  return unused;
}

static void be_a_sensor(int ready, int block, int elsewhere) {
  pthread_t starter;
  tessaline_board_select("K3610");
  tessaline_board_set_sleep_factor(0);
  log_set_quiet(1);
  GetLibVersion("K3610");
  if (elsewhere) {
    pthread_create(&starter, NULL, start_up, NULL);
    pthread_join(starter, NULL);
  } else {
    start_up(NULL);
  }
  if (block) {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, NULL);
  }
  if (write(ready, "r", 1) != 1) _exit(98);
  alarm(60);
  pthread_exit(NULL);
}

int main(int argc, char** argv) {
  const int block = argc > 1 && strcmp(argv[1], "blocked") == 0;
  const int elsewhere = argc > 1 && strcmp(argv[1], "elsewhere") == 0;
  int ends[2];
  int status = 0;
  char ready;
  pid_t child;
  if (pipe(ends) != 0) return EXIT_FAILURE;
  signal(SIGINT, SIG_DFL);
  child = fork();
  if (child == 0) be_a_sensor(ends[1], block, elsewhere);
  close(ends[1]);
  if (read(ends[0], &ready, 1) != 1) return EXIT_FAILURE;
  wait_ms(100);
  kill(child, SIGINT);
  if (block) {
    wait_ms(500);
    if (waitpid(child, &status, WNOHANG) != 0) {
      fputs("ended by a signal that it had blocked\n", stderr);
      return EXIT_FAILURE;
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return EXIT_SUCCESS;
  }
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return EXIT_SUCCESS;
  fprintf(stderr, "status %d\n", status);
  return EXIT_FAILURE;
}
