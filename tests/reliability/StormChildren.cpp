#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <thread>

#include "reliability/StormPrograms.h"
#include "reliability/StormTraffic.h"
#include "tessaline/tessaline.h"

namespace storm {

namespace {

// A shell fails if it has any descriptor except the standard streams, because it then inherited a
// device. Pipes do not count: the address sanitizer tests memory with one, for a moment.
constexpr const char* kLookAround =
    "for fd in /proc/$$/fd/*; do case ${fd##*/} in [012]) ;;"
    " *) case $(readlink $fd) in '' | pipe:*) ;; *) echo failed: left $(readlink $fd); exit 7;"
    " esac ;; esac; done";
constexpr const char* kShell = "/bin/sh";
const char* const kArguments[] = {kShell, "-c", kLookAround, nullptr};
constexpr int kNoShell = 127;

volatile sig_atomic_t children_seen = 0;

void CountChild(int /*signal*/) { children_seen = children_seen + 1; }

int StatusOf(pid_t child) {
  int status = -1;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

void ForkAndExec() {
  const pid_t child = fork();
  if (child == 0) {
    execv(kShell, const_cast<char* const*>(kArguments));
    _exit(kNoShell);
  }
  if (StatusOf(child) != 0) Fail("a forked child failed");
}

void Spawn() {
  pid_t child = 0;
  if (posix_spawn(&child, kShell, nullptr, nullptr, const_cast<char* const*>(kArguments),
                  environ) != 0) {
    Fail("posix_spawn failed");
  }
  if (StatusOf(child) != 0) Fail("a spawned child failed");
}

void CallSystem() {
  if (std::system(kLookAround) != 0) Fail("a child of system() failed");
}

// The child has the library's handler, but the device belongs to its parent.
void ForkAndInterrupt() {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) raise(SIGTERM);
    for (;;) pause();
  }
  kill(child, SIGINT);
  const int status = StatusOf(child);
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGINT) Fail("an interrupted child failed");
}

// Ensures that some devices are open whenever a child is started.
void KeepDevicesBusy() {
  for (unsigned i = 0;; ++i) {
    RegisterTraffic(i);
    LedControl(i % 8);
    DAWrite(i % 4096);
    SetLaserPower(static_cast<float>(30 + i % 40));
    GetCpuTemp();
  }
}

}  // namespace

pid_t ExpectChildren() {
  struct sigaction action {};
  action.sa_handler = CountChild;  // no SA_RESTART, so every call is interrupted
  sigaction(SIGCHLD, &action, nullptr);
  std::thread(KeepDevicesBusy).detach();
  return 0;
}

void StartChildren() {
  for (;;) {
    ForkAndExec();
    Spawn();
    CallSystem();
    ForkAndInterrupt();
  }
}

}  // namespace storm
