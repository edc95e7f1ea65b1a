// Threads that cannot be created.
#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>

#include "api/StartedBoard.h"

namespace {

// The creation of this thread, counted from now on, fails.
std::atomic<int> threads_until_failure{0};

}  // namespace

namespace tessaline_test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;

class Refused : public BoardFixture {
 protected:
  Refused() : BoardFixture("K3610") {}
  void SetUp() override {
    BoardFixture::SetUp();
    log_set_quiet(true);
    GetLibVersion("K3610");
  }
  void TearDown() override {
    threads_until_failure = 0;
    BoardFixture::TearDown();
  }
  const LoggedErrors errors_;
};

// The guard of the process's end, which stays once it runs, then the image thread, then the strip
// thread. If one of them is missing, nothing is left half started.
TEST_F(Refused, AStartThatFindsNoThreadFailsAndCanBeTriedAgain) {
  for (const int missing : {1, 1, 2}) {
    threads_until_failure = missing;
    EXPECT_EQ(RegisterHardwareInit(), -1);
    EXPECT_EQ(threads_until_failure, 0);
  }
  EXPECT_THAT(errors_.lines(),
              Each(HasSubstr("RegisterHardwareInit: Resource temporarily unavailable")));
  EXPECT_EQ(errors_.lines().size(), 3u);
  EXPECT_EQ(RegisterHardwareInit(), 0);
  static std::atomic<int> images{0};
  RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(
                                                  +[](unsigned, unsigned, void*) { ++images; }));
  SetTriMode(2);
  SetGlobalControl(1);
  TricontrolSWTrigger();
  EXPECT_TRUE(Eventually([] { return images == 1; }));
}

TEST_F(Refused, ANotifierThatFindsNoThreadStaysOff) {
  RegisterEventHandler(TESSALINE_EVENT_DA_ARRIVED, [] {});
  ASSERT_EQ(RegisterHardwareInit(), 0);
  threads_until_failure = 1;
  EXPECT_EQ(SetDADelayState(1), -1);
  EXPECT_THAT(errors_.lines(), Contains(HasSubstr("SetDADelayState: ")));
  EXPECT_EQ(SetDADelayState(1), 0);
  EXPECT_EQ(SetDADelayState(0), 0);
}

}  // namespace
}  // namespace tessaline_test

// Replaces the C library's function for the whole program.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument)
#if defined(__GLIBC__)
    __THROWNL
#endif
{
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto next = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  if (threads_until_failure > 0 && --threads_until_failure == 0) return EAGAIN;
  return next(thread, attributes, start, argument);
}
