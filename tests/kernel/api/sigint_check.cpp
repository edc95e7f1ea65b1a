// An application that SIGINT ends while all its threads wait for their devices in the kernel.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/Measured.h"
#include "support/Silence.h"
#include "support/Started.h"

namespace {

using namespace kernel_test;
using Clock = std::chrono::steady_clock;

// Runs kernel_start, which keeps running after the start.
class Application {
 public:
  Application() : process_(fork()) {
    if (process_ == 0) {
      std::freopen("/dev/null", "w", stdout);
      execl("/checks/kernel_start", "kernel_start", "K3610", "stay", nullptr);
      _exit(127);
    }
  }
  ~Application() {
    if (process_ > 0) {
      kill(process_, SIGKILL);
      waitpid(process_, nullptr, 0);
    }
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  // Both capture threads and both notifiers.
  bool Waits() const { return ThreadsWaitInPoll(process_, 4); }

  // According to the kernel. The library installs its handler last.
  bool CatchesSigint() const {
    static const std::string kCaught = "SigCgt:";
    const std::string status = ReadFile("/proc/" + std::to_string(process_) + "/status");
    const auto at = status.find(kCaught);
    return at != std::string::npos &&
           (std::stoull(status.substr(at + kCaught.size()), nullptr, 16) >> (SIGINT - 1) & 1) != 0;
  }

  int Interrupt() {
    kill(process_, SIGINT);
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return status;
  }

 private:
  pid_t process_;
};

TEST(WaitingApplication, IsEndedBySigintTwentyTimes) {
  const Silence silence;
  std::vector<double> seconds;
  for (int i = 0; i < 20; ++i) {
    Application application;
    ASSERT_TRUE(Eventually([&] { return application.CatchesSigint(); })) << "round " << i;
    ASSERT_TRUE(Eventually([&] { return application.Waits(); })) << "round " << i;
    const auto start = Clock::now();
    const int status = application.Interrupt();
    seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "round " << i << ", status " << status;
  }
  ExpectEachWithinASecond("SIGINT to the end of a started application", seconds);
}

}  // namespace
