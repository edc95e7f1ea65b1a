// Runs every check in its own process, because the library's singletons live as long as the
// process, and prints one line for each. With --one NAME: runs only that check, in this process.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/Measured.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kPatience{90};

// Prints only failures and skipped checks.
class Failures : public ::testing::EmptyTestEventListener {
  void OnTestPartResult(const ::testing::TestPartResult& result) override {
    if (result.failed()) {
      std::printf("  %s:%d: %s\n", result.file_name(), result.line_number(), result.message());
    } else if (result.skipped()) {
      std::printf("SKIPPED %s\n", result.message());
    }
  }
};

int RunOne(const std::string& name) {
  GTEST_FLAG_SET(filter, name);
  auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new Failures);
  const int result = RUN_ALL_TESTS();
  std::fflush(nullptr);
  // The library's threads run until the process has ended.
  _exit(result);
}

std::vector<std::string> Names() {
  std::vector<std::string> names;
  const auto& all = *::testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const auto& suite = *all.GetTestSuite(i);
    for (int k = 0; k < suite.total_test_count(); ++k) {
      names.push_back(std::string(suite.name()) + '.' + suite.GetTestInfo(k)->name());
    }
  }
  return names;
}

// Returns the exit status, or -1 if the process had to be killed.
int Wait(pid_t child) {
  const auto until = Clock::now() + kPatience;
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (Clock::now() > until) {
      kill(-child, SIGKILL);  // and its children
      waitpid(child, &status, 0);
      std::printf("  did not end by itself\n");
      return -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (WIFSIGNALED(status)) std::printf("  ended by signal %d\n", WTERMSIG(status));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (argc == 3 && std::strcmp(argv[1], "--one") == 0) return RunOne(argv[2]);
  bool good = true;
  for (const std::string& name : Names()) {
    if (argc > 1 && name.find(argv[1]) == std::string::npos) continue;
    std::fflush(nullptr);
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
      setpgid(0, 0);
      execl("/proc/self/exe", argv[0], "--one", name.c_str(), nullptr);
      _exit(127);
    }
    const bool passed = Wait(child) == 0;
    const auto took = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("%s %s (%.1f s)\n", passed ? "passed" : "FAILED", name.c_str(), took);
    good = good && passed;
  }
  return good ? 0 : 1;
}
