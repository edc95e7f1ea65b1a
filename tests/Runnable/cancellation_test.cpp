// A request to end that meets a thread in its system call.
#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <thread>

#include "function/CancellationScope.h"
#include "support/ChangedDriver.h"

namespace {

using VeltranoSDK::AnswerTo;
using VeltranoSDK::CancellableIoctl;
using VeltranoSDK::CancellationRequest;
using VeltranoSDK::CancellationScope;

struct Worker {
  CancellationRequest request;
  bool in_scope = true;
  bool answers = true;
  int result = 0;
  int error = 0;
  bool went_further = false;
};

void Work(Worker& worker) {
  if (worker.answers) AnswerTo(worker.request);
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  errno = 0;
  if (worker.in_scope) {
    const CancellationScope may_end_here;
    worker.result = CancellableIoctl(-1, 0, nullptr);
  } else {
    worker.result = CancellableIoctl(-1, 0, nullptr);
  }
  worker.error = errno;
  worker.went_further = true;
}

void RunInAThread(Worker& worker) {
  std::thread([&worker] { Work(worker); }).join();
}

// The request is made during the call, and is not delivered before it has returned:
// as if its signal were still on its way.
void RequestDuringTheCall(Worker& worker) {
  tessaline_test::changed_driver = [&worker](tessaline_test::Ioctl, int, unsigned long, void*) {
    int state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
    EXPECT_EQ(worker.request.Make(pthread_self()), 0);
    pthread_setcancelstate(state, nullptr);
    errno = EBUSY;
    return -7;
  };
}

TEST(CancellableIoctl, ReturnsWhatTheDriverSays) {
  Worker worker;
  tessaline_test::changed_driver = [](tessaline_test::Ioctl, int, unsigned long, void*) {
    errno = EBUSY;
    return -7;
  };
  RunInAThread(worker);
  EXPECT_TRUE(worker.went_further);
  EXPECT_EQ(worker.result, -7);
  EXPECT_EQ(worker.error, EBUSY);
}

TEST(CancellableIoctl, LetsNobodyGoFurtherWhoseEndIsUnderWay) {
  Worker worker;
  RequestDuringTheCall(worker);
  RunInAThread(worker);
  EXPECT_FALSE(worker.went_further);
}

TEST(CancellableIoctl, IsAnyIoctlOutsideAScope) {
  Worker worker;
  worker.in_scope = false;
  RequestDuringTheCall(worker);
  RunInAThread(worker);
  EXPECT_TRUE(worker.went_further);
  EXPECT_EQ(worker.result, -7);
}

TEST(CancellableIoctl, IsAnyIoctlForAThreadThatAnswersToNobody) {
  Worker worker;
  worker.answers = false;
  RequestDuringTheCall(worker);
  RunInAThread(worker);
  EXPECT_EQ(worker.result, -7) << "it ends, but only where it would have anyway";
}

TEST(CancellableIoctl, AFormerRequestIsNotMeantForTheNextThread) {
  Worker worker;
  RequestDuringTheCall(worker);
  RunInAThread(worker);
  worker.request.Reset();
  tessaline_test::changed_driver = nullptr;
  RunInAThread(worker);
  EXPECT_TRUE(worker.went_further);
}

}  // namespace
