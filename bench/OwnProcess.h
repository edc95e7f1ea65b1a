#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace bench {

// Measures in a separate process, because a device has one owner, the library can be started only
// once, and its threads do not end. Its output is not shown.
template <typename Function>
auto InOwnProcess(Function measure) {
  using Result = decltype(measure());
  static_assert(std::is_trivially_copyable_v<Result>);
  int ends[2];
  if (pipe(ends) != 0) std::exit(1);
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    const Result result = measure();
    _exit(write(ends[1], &result, sizeof result) == sizeof result ? 0 : 1);
  }
  close(ends[1]);
  Result result;
  std::size_t had = 0;
  for (ssize_t got = 1; got > 0 && had < sizeof result; had += static_cast<std::size_t>(got)) {
    got = read(ends[0], reinterpret_cast<char*>(&result) + had, sizeof result - had);
    if (got < 0) break;
  }
  const bool read_all = had == sizeof result;
  close(ends[0]);
  waitpid(child, nullptr, 0);
  if (!read_all) {
    std::fprintf(stderr, "a measuring process failed\n");
    std::exit(1);
  }
  return result;
}

}  // namespace bench
