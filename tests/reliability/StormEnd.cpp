#include "reliability/StormEnd.h"

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "reliability/StormMarks.h"
#include "reliability/StormTraffic.h"
#include "tessaline/board.h"

namespace storm {

namespace {

using tessaline_test::AtWork;
using tessaline_test::CutShort;
using tessaline_test::kReportDescriptor;

// The process may exceed its end by at most this time.
constexpr long kForTranscriptNs = 300'000'000;

sem_t cut_short;
sem_t transcript_written;

template <typename Message>
bool Report(const Message& message) {
  return write(kReportDescriptor, &message, sizeof message) == sizeof message;
}

// Runs on its own thread, because the thread that ends the process may wait for anything.
void WaitForTheCut() {
  while (sem_wait(&cut_short) != 0) {
  }
  // The board does this at an ordinary end.
  tessaline_board_transcript_save(std::getenv("TESSALINE_BOARD_TRANSCRIPT"));
  sem_post(&transcript_written);
}

void CutIsMade() {
  Report(CutShort{std::chrono::steady_clock::now()});
  sem_post(&cut_short);
  timespec until{};
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += kForTranscriptNs;
  until.tv_sec += until.tv_nsec / 1'000'000'000;
  until.tv_nsec %= 1'000'000'000;
  sem_clockwait(&transcript_written, CLOCK_MONOTONIC, &until);
}

}  // namespace

void PrepareForTheEnd() {
  fcntl(kReportDescriptor, F_SETFD, FD_CLOEXEC);
  sem_init(&cut_short, 0, 0);
  sem_init(&transcript_written, 0, 0);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  std::thread(WaitForTheCut).detach();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void ReportAtWork(pid_t second_thread) {
  if (!Report(AtWork{second_thread})) Fail("nobody listens");
}

}  // namespace storm

// Replaces the C library's function for the whole program, except for its own exit(). A thread that
// calls this with status 0 no longer waits for exit().
extern "C" void _exit(int status) {
  if (status == EXIT_SUCCESS) storm::CutIsMade();
  for (;;) syscall(SYS_exit_group, status);
}
