// The life of a worker: start, passes, hooks, the two ways to end it, and the guarantees about
// callbacks after a cancellation.
#include "Runnable/Runnable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "log/Log.h"
#include "support/Waiting.h"

namespace {

using std::chrono::milliseconds;
using tessaline_test::Eventually;
using tessaline_test::OpenDescriptors;
using tessaline_test::ReallyWait;
using ::testing::ElementsAre;
using VeltranoSDK::Utility::CallbackSlot;
using VeltranoSDK::Utility::Runnable;

// Each pass takes a byte from a pipe and delivers it. The object owns the reading end, so a leaked
// object leaks a descriptor.
class PipeReader final : public Runnable {
 public:
  PipeReader() {
    EXPECT_EQ(pipe(ends_), 0);
    ++objects;
  }
  ~PipeReader() {
    close(ends_[0]);
    close(ends_[1]);
    --objects;
  }

  void Feed(char byte = 'x') { EXPECT_EQ(write(ends_[1], &byte, 1), 1); }
  void Register(std::function<void(char)> callback) {
    ReplaceCallback(callback_, std::move(callback));
  }

  std::atomic<bool> set_up{false};
  std::atomic<bool> torn_down{false};
  std::atomic<int> passes{0};
  static inline std::atomic<int> objects{0};

 private:
  bool BeforeRun() override {
    set_up = true;
    return true;
  }
  void LoopRun() override {
    char byte;
    if (!WaitFor(ends_[0]) || read(ends_[0], &byte, 1) != 1) return;
    Deliver([&] {
      if (const auto callback = callback_.Get()) (*callback)(byte);
    });
    ++passes;
  }
  void AfterRun() override { torn_down = true; }

  int ends_[2];
  CallbackSlot<void(char)> callback_;
};

class RunnableTest : public ::testing::Test {
 protected:
  void SetUp() override { log_set_level(TESSALINE_LOG_ERROR); }

  std::shared_ptr<PipeReader> reader = std::make_shared<PipeReader>();
};

TEST_F(RunnableTest, IsNothingBeforeTheStart) {
  EXPECT_FALSE(reader->IsRunning());
  EXPECT_FALSE(reader->IsAlive());
  EXPECT_FALSE(reader->IsStopped());
  EXPECT_TRUE(reader->Stop());
  EXPECT_FALSE(reader->IsStopped());
  EXPECT_TRUE(reader->WaitUntilGone(0));
}

TEST_F(RunnableTest, StopLetsThePassEndAndTearsDown) {
  EXPECT_TRUE(reader->Start());
  EXPECT_TRUE(reader->IsRunning());
  ASSERT_TRUE(Eventually([&] { return reader->set_up && reader->IsAlive(); }));
  // The pass in progress blocks until the pipe has data.
  std::thread feeder([&] {
    ReallyWait(milliseconds(50));
    reader->Feed();
  });
  EXPECT_TRUE(reader->Stop());
  feeder.join();
  EXPECT_EQ(reader->passes, 1);
  EXPECT_TRUE(reader->torn_down);
  EXPECT_FALSE(reader->IsAlive());
  EXPECT_TRUE(reader->IsStopped());
  EXPECT_TRUE(reader->WaitUntilGone(0));
  EXPECT_TRUE(reader->Stop());
}

TEST_F(RunnableTest, CallsTheHooksAfterSetUpAndAfterTearDown) {
  std::vector<std::string> seen;
  reader->RegisterBeforeRunFinishFunc([&] { seen.push_back("replaced"); });
  reader->RegisterBeforeRunFinishFunc([&] { seen.push_back(reader->set_up ? "before" : "early"); });
  reader->RegisterAfterRunFinishFunc(
      [&] { seen.push_back(reader->torn_down ? "after" : "early"); });
  reader->Start();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return reader->passes == 1; }));
  std::thread feeder([&] {
    ReallyWait(milliseconds(50));
    reader->Feed();
  });
  reader->Stop();
  feeder.join();
  EXPECT_THAT(seen, ElementsAre("before", "after"));
}

TEST_F(RunnableTest, CanBeStartedAgainAfterItsEnd) {
  for (int round = 0; round < 3; ++round) {
    reader->Start();
    reader->Detach();
    reader->Feed();
    ASSERT_TRUE(Eventually([&] { return reader->passes == round + 1; }));
    reader->Cancel();
    ASSERT_TRUE(reader->WaitUntilGone(5000));
  }
}

TEST_F(RunnableTest, ASecondStartReplacesADetachedWorker) {
  std::atomic<int> started{0};
  reader->RegisterBeforeRunFinishFunc([&] { ++started; });
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(reader->Start());
    EXPECT_TRUE(reader->Detach());
  }
  ASSERT_TRUE(Eventually([&] { return started == 3; }));
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return reader->passes == 1; }));
  reader->Cancel();
}

TEST_F(RunnableTest, CancelEndsAWorkerInItsBlockingCall) {
  reader->Start();
  reader->Detach();
  ASSERT_TRUE(Eventually([&] { return reader->set_up.load(); }));
  EXPECT_TRUE(reader->Cancel());
  EXPECT_TRUE(reader->WaitUntilGone(5000));
  EXPECT_FALSE(reader->torn_down);
  EXPECT_TRUE(reader->IsAlive());
}

TEST_F(RunnableTest, CancelOfAnythingButAWorkerIsHarmless) {
  EXPECT_TRUE(reader->Cancel());
  reader->Start();
  reader->Detach();
  EXPECT_TRUE(reader->Cancel());
  ASSERT_TRUE(reader->WaitUntilGone(5000));
  EXPECT_TRUE(reader->Cancel());
  EXPECT_TRUE(reader->Cancel());
}

TEST_F(RunnableTest, CancelEndsAWorkerThatNeverBlocks) {
  class Spinner final : public Runnable {
    void LoopRun() override {}
  };
  const auto spinner = std::make_shared<Spinner>();
  spinner->Start();
  spinner->Detach();
  spinner->Cancel();
  EXPECT_TRUE(spinner->WaitUntilGone(5000));
}

TEST_F(RunnableTest, CancelCutsARestShort) {
  class Sleeper final : public Runnable {
    void LoopRun() override { Rest(std::chrono::hours(1)); }
  };
  const auto sleeper = std::make_shared<Sleeper>();
  for (int round = 0; round < 20; ++round) {
    sleeper->Start();
    sleeper->Detach();
    sleeper->Cancel();
    ASSERT_TRUE(sleeper->WaitUntilGone(5000));
  }
}

TEST_F(RunnableTest, ADetachedWorkerCanNotBeStopped) {
  reader->Start();
  reader->Detach();
  EXPECT_FALSE(reader->Stop());
  EXPECT_FALSE(reader->Detach());
  EXPECT_TRUE(reader->IsRunning());
  reader->Cancel();
}

TEST_F(RunnableTest, KeepsItsObjectAliveUntilTheWorkerIsGone) {
  std::atomic<bool> inside{false}, go_on{false};
  PipeReader* const object = reader.get();
  reader->Register([&, object](char) {
    inside = true;
    Eventually([&] { return go_on.load(); });
    object->Cancel();
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return inside.load(); }));
  reader.reset();
  EXPECT_EQ(PipeReader::objects, 1);
  go_on = true;
  EXPECT_TRUE(Eventually([&] { return PipeReader::objects == 0; }));
}

TEST_F(RunnableTest, CancelAndResetCloseTheDescriptors) {
  reader.reset();
  const int before = OpenDescriptors();
  for (int round = 0; round < 200; ++round) {
    reader = std::make_shared<PipeReader>();
    reader->Start();
    reader->Detach();
    reader->Feed();
    reader->Cancel();
    reader.reset();
    ASSERT_TRUE(tessaline_test::NoDescriptorsAreLeft(before)) << "round " << round;
  }
}

TEST_F(RunnableTest, WorksOnAnObjectNobodySharesEither) {
  PipeReader on_the_stack;
  on_the_stack.Start();
  on_the_stack.Detach();
  on_the_stack.Feed();
  ASSERT_TRUE(Eventually([&] { return on_the_stack.passes == 1; }));
  on_the_stack.Cancel();
  EXPECT_TRUE(on_the_stack.WaitUntilGone(5000));
}

TEST_F(RunnableTest, CancelWaitsForTheCallbackInFlight) {
  std::atomic<bool> inside{false}, done{false};
  reader->Register([&](char) {
    inside = true;
    ReallyWait(milliseconds(100));
    done = true;
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return inside.load(); }));
  reader->Cancel();
  EXPECT_TRUE(done);
  EXPECT_TRUE(reader->WaitUntilGone(5000));
}

TEST_F(RunnableTest, DeliversNothingAfterCancel) {
  for (int round = 0; round < 200; ++round) {
    reader = std::make_shared<PipeReader>();
    std::atomic<int> delivered{0};
    reader->Register([&](char) { ++delivered; });
    reader->Start();
    reader->Detach();
    for (int i = 0; i < round % 50; ++i) reader->Feed();
    reader->Cancel();
    const int delivered_at_cancel = delivered;
    for (int i = 0; i < 5; ++i) reader->Feed();
    if (round % 20 == 0) ReallyWait(milliseconds(2));
    ASSERT_EQ(delivered, delivered_at_cancel);
    ASSERT_TRUE(reader->WaitUntilGone(5000));
  }
}

TEST_F(RunnableTest, MayBeCancelledByItsOwnCallback) {
  std::atomic<int> delivered{0};
  std::atomic<bool> cancelled{false};
  reader->Register([&](char) {
    ++delivered;
    EXPECT_FALSE(reader->WaitUntilGone(5000)) << "a worker cannot see itself gone";
    cancelled = reader->Cancel();
  });
  reader->Start();
  reader->Detach();
  for (int i = 0; i < 3; ++i) reader->Feed();
  ASSERT_TRUE(Eventually([&] { return cancelled.load(); }));
  EXPECT_TRUE(reader->WaitUntilGone(5000));
  EXPECT_EQ(delivered, 1);
}

TEST_F(RunnableTest, ItsOwnCallbackMayBeTheLastToLetGoOfIt) {
  std::atomic<bool> let_go{false};
  reader->Register([&](char) {
    reader->Cancel();
    reader.reset();
    let_go = true;
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return let_go && PipeReader::objects == 0; }));
}

TEST_F(RunnableTest, ReplacesACallbackWhileItRuns) {
  std::atomic<bool> inside{false}, done{false}, fresh{false};
  reader->Register([&](char) {
    inside = true;
    ReallyWait(milliseconds(50));
    done = true;
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return inside.load(); }));
  reader->Register([&](char) { fresh = true; });
  EXPECT_TRUE(done) << "the old callback still runs";
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return fresh.load(); }));
  reader->Cancel();
}

TEST_F(RunnableTest, ACallbackMayReplaceItself) {
  std::atomic<int> first{0}, second{0};
  reader->Register([&](char) {
    ++first;
    reader->Register([&](char) { ++second; });
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return second == 1; }));
  EXPECT_EQ(first, 1);
  reader->Cancel();
}

TEST_F(RunnableTest, ACallbackThatWaitsForItsCancellerIsNotWaitedForEver) {
  std::atomic<bool> inside{false}, released{false};
  reader->Register([&](char) {
    inside = true;
    Eventually([&] { return released.load(); });
  });
  reader->Start();
  reader->Detach();
  reader->Feed();
  ASSERT_TRUE(Eventually([&] { return inside.load(); }));
  EXPECT_TRUE(reader->Cancel());
  released = true;
  EXPECT_TRUE(reader->WaitUntilGone(5000));
}

TEST_F(RunnableTest, BlocksTheInterruptSignalInTheWorker) {
  std::atomic<int> blocked{-1};
  reader->RegisterBeforeRunFinishFunc([&] {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked = sigismember(&mask, SIGINT);
  });
  reader->Start();
  reader->Detach();
  ASSERT_TRUE(Eventually([&] { return blocked != -1; }));
  EXPECT_EQ(blocked, 1);
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGINT), 0) << "the starting thread keeps its own mask";
  reader->Cancel();
}

// The handler may interrupt any application thread at any place, including a thread inside Cancel
// or WaitUntilGone.
TEST_F(RunnableTest, CanBeCancelledFromTheInterruptHandler) {
  static std::shared_ptr<PipeReader> target;
  static std::atomic<int> handled{0};
  struct sigaction action {};
  action.sa_handler = [](int) {
    target->Cancel();
    if (target->WaitUntilGone(5000)) ++handled;
  };
  ASSERT_EQ(sigaction(SIGINT, &action, nullptr), 0);

  for (int round = 0; round < 100; ++round) {
    target = std::make_shared<PipeReader>();
    target->Start();
    target->Detach();
    target->Feed();
    std::atomic<bool> over{false};
    const pthread_t victim = pthread_self();
    std::thread interrupter([&] {
      ReallyWait(milliseconds(round % 3));
      pthread_kill(victim, SIGINT);
      over = true;
    });
    while (!over) {
      target->Register([](char) {});
      target->WaitUntilGone(0);
      if (round % 2 == 0) target->Cancel();
    }
    interrupter.join();
    ASSERT_TRUE(Eventually([&] { return handled == round + 1; }));
  }
  signal(SIGINT, SIG_DFL);
}

TEST_F(RunnableTest, ManyThreadsMayCancelAtOnce) {
  for (int round = 0; round < 50; ++round) {
    reader = std::make_shared<PipeReader>();
    reader->Start();
    reader->Detach();
    std::vector<std::thread> cancellers;
    for (int i = 0; i < 4; ++i) {
      cancellers.emplace_back([this] {
        reader->Feed();
        EXPECT_TRUE(reader->Cancel());
        EXPECT_TRUE(reader->WaitUntilGone(5000));
      });
    }
    for (std::thread& canceller : cancellers) canceller.join();
  }
}

TEST(RunnableDeathTest, DestroyingOneThatWasNeverDetachedEndsTheProcess) {
  EXPECT_DEATH(
      {
        PipeReader reader;
        reader.Start();
        reader.Cancel();
        reader.WaitUntilGone(5000);
      },
      "");
}

TEST(CallbackSlotTest, ThrowsLikeAnEmptyFunctionWhenEmpty) {
  CallbackSlot<void(int)> slot;
  EXPECT_THROW(slot(1), std::bad_function_call);
  int seen = 0;
  slot.Replace([&](int value) { seen = value; });
  slot(5);
  EXPECT_EQ(seen, 5);
  slot.Replace({});
  EXPECT_THROW(slot(1), std::bad_function_call);
  EXPECT_EQ(slot.Get(), nullptr);
}

}  // namespace
