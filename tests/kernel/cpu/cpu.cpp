// Runs a program, and prints the microseconds of processor time that it took, in user space and in
// the kernel.
//
//   kernel_cpu PROGRAM [ARGUMENT...]
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

long Microseconds(const timeval& time) { return time.tv_sec * 1'000'000 + time.tv_usec; }

}  // namespace

int main(int argc, char** argv) {
  pid_t program = 0;
  if (argc < 2 || posix_spawnp(&program, argv[1], nullptr, nullptr, argv + 1, environ) != 0) {
    return 2;
  }
  int status = 0;
  waitpid(program, &status, 0);
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  std::printf("%ld\n", Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime));
  return status == 0 ? 0 : 1;
}
