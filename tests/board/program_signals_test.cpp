// A program's own use of the signals by which the board sees register accesses.

#include <gmock/gmock.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include "BoardFixture.h"
#include "support/Sanitizers.h"

namespace {

namespace fpga = VeltranoSDK::fpga;

using board_test::BoardTest;
using board_test::Descriptor;
using tessaline_test::kThreadSanitizer;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kSpacing = fpga::kReg.TRI_SPACING.Index();
constexpr std::size_t kFilter = fpga::kReg.IMG_FILTER_WIDTH.Index();

sigjmp_buf before_fault;
std::atomic<int> first_calls;
std::atomic<int> second_calls;
std::atomic<bool> segv_blocked;
std::atomic<bool> user_blocked;
struct sigaction beneath;

void Fault() { *reinterpret_cast<volatile int*>(std::uintptr_t{8}) = 1; }

void Leave(int) {
  ++first_calls;
  siglongjmp(before_fault, 1);
}

void CallTheOneBeneath(int number) {
  ++second_calls;
  beneath.sa_handler(number);
}

void NoteMask(int number) {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  segv_blocked = sigismember(&mask, SIGSEGV) == 1;
  user_blocked = sigismember(&mask, SIGUSR2) == 1;
  Leave(number);
}

struct sigaction Install(int number, void (*handler)(int), int flags = 0, int blocked = 0) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  if (blocked != 0) sigaddset(&action.sa_mask, blocked);
  EXPECT_EQ(sigaction(number, &action, &before), 0);
  return before;
}

class ProgramSignals : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    first_calls = 0;
    second_calls = 0;
    Install(SIGSEGV, SIG_DFL);  // a sanitizer has its own handler
    memory_ = Descriptor("/dev/mem", O_RDWR);
    words_ = Map();
    ASSERT_NE(words_, MAP_FAILED);
    words_[kSpacing] = 1;
  }
  void TearDown() override {
    ::munmap(const_cast<std::uint32_t*>(words_), kPage);
    BoardTest::TearDown();
  }
  volatile std::uint32_t* Map(std::size_t length = kPage) const {
    const auto base = fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions);
    return static_cast<volatile std::uint32_t*>(
        ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, memory_.Get(), base));
  }
  void StillReachesRegisters() {
    words_[kSpacing] = 5;
    EXPECT_EQ(words_[kSpacing], 5u);
  }

  Descriptor memory_;
  volatile std::uint32_t* words_ = nullptr;
};

TEST_F(ProgramSignals, AHandlerThatIsInstalledLaterLeavesAnEarlierMappingAlone) {
  Install(SIGSEGV, Leave);
  StillReachesRegisters();
  signal(SIGSEGV, Leave);
  StillReachesRegisters();
  EXPECT_EQ(first_calls, 0);
}

TEST_F(ProgramSignals, AreThoseThatTheProgramSet) {
  EXPECT_EQ(Install(SIGSEGV, Leave).sa_handler, SIG_DFL);
  EXPECT_EQ(Install(SIGSEGV, SIG_IGN).sa_handler, Leave);
  EXPECT_EQ(signal(SIGSEGV, Leave), SIG_IGN);
  EXPECT_EQ(signal(SIGSEGV, SIG_DFL), Leave);
  EXPECT_EQ(signal(SIGTRAP, SIG_DFL), SIG_DFL);
  StillReachesRegisters();
}

TEST_F(ProgramSignals, HandlersMayCallEachOther) {
  Install(SIGSEGV, Leave);
  volatile std::uint32_t* const between = Map();
  beneath = Install(SIGSEGV, CallTheOneBeneath);
  volatile std::uint32_t* const later = Map();
  if (sigsetjmp(before_fault, 1) == 0) Fault();
  if (sigsetjmp(before_fault, 1) == 0) Fault();
  EXPECT_EQ(second_calls, 2);
  EXPECT_EQ(first_calls, 2);
  StillReachesRegisters();
  ::munmap(const_cast<std::uint32_t*>(between), kPage);
  ::munmap(const_cast<std::uint32_t*>(later), kPage);
}

TEST_F(ProgramSignals, AHandlerHasTheMaskThatItAskedFor) {
  Install(SIGSEGV, NoteMask, 0, SIGUSR2);
  if (sigsetjmp(before_fault, 1) == 0) Fault();
  EXPECT_TRUE(segv_blocked);
  EXPECT_TRUE(user_blocked);
  if (kThreadSanitizer) GTEST_SKIP() << "it blocks everything in a handler";
  Install(SIGSEGV, NoteMask, SA_NODEFER);
  if (sigsetjmp(before_fault, 1) == 0) Fault();
  EXPECT_FALSE(segv_blocked);
  EXPECT_FALSE(user_blocked);
  EXPECT_EQ(first_calls, 2);
}

TEST_F(ProgramSignals, AHandlerForOneSignalIsGoneAfterIt) {
  Install(SIGSEGV, Leave, SA_RESETHAND);
  StillReachesRegisters();
  if (sigsetjmp(before_fault, 1) == 0) Fault();
  EXPECT_EQ(first_calls, 1);
  EXPECT_EQ(Install(SIGSEGV, SIG_DFL).sa_handler, SIG_DFL);
  EXPECT_EXIT(Fault(), ::testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(ProgramSignals, WhatIsIgnoredIsIgnoredUnlessTheProcessorReportsIt) {
  Install(SIGSEGV, SIG_IGN);
  raise(SIGSEGV);
  StillReachesRegisters();
  EXPECT_EXIT(Fault(), ::testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(ProgramSignals, ARaisedOneEndsTheProcess) {
  EXPECT_EXIT(raise(SIGSEGV), ::testing::KilledBySignal(SIGSEGV), "");
}

#if defined(__x86_64__)

void Or(volatile std::uint32_t& word) { asm volatile("orl $1, %0" : "+m"(word)); }

void Copy(volatile std::uint32_t* to, const volatile std::uint32_t* from) {
  std::size_t count = 4;
  asm volatile("rep movsb" : "+S"(from), "+D"(to), "+c"(count) : : "memory");
}

TEST_F(ProgramSignals, BreakpointsAreTheProgramsOwn) {
  Or(words_[kSpacing]);
  EXPECT_EXIT(asm volatile("int3"), ::testing::KilledBySignal(SIGTRAP), "");
  Install(SIGTRAP, [](int) { ++first_calls; });
  Or(words_[kSpacing]);
  EXPECT_EQ(first_calls, 0);
  asm volatile("int3");
  EXPECT_EQ(first_calls, 1);
}

TEST_F(ProgramSignals, AnInstructionThatFaultsElsewhereGivesItsPageBack) {
  Install(SIGSEGV, Leave);
  if (sigsetjmp(before_fault, 1) == 0) {
    Copy(reinterpret_cast<volatile std::uint32_t*>(std::uintptr_t{8}), words_ + kSpacing);
  }
  EXPECT_EQ(first_calls, 1);
  std::thread([this] { Or(words_[kFilter]); }).join();
  StillReachesRegisters();
}

// Each copy has a page of one mapping while it waits for a page of the other.
TEST_F(ProgramSignals, CopiesInBothDirectionsDoNotWaitForEachOther) {
  constexpr std::size_t kLong = 0x30000;  // three blocks
  constexpr std::size_t kDelay = 0x20000 / 4 + fpga::kReg.TRI_DELAY.Index();
  volatile std::uint32_t* const one = Map(kLong);
  volatile std::uint32_t* const other = Map(kLong);
  one[kDelay] = 7;
  const auto copy = [](volatile std::uint32_t* to, const volatile std::uint32_t* from) {
    for (int i = 0; i < 2000; ++i) Copy(to, from);
  };
  std::thread there(copy, other + kFilter, one + kSpacing);
  copy(one + kDelay + 1, other + kDelay);
  there.join();
  EXPECT_EQ(one[kFilter], 1u);
  EXPECT_EQ(other[kDelay + 1], 7u);
  ::munmap(const_cast<std::uint32_t*>(one), kLong);
  ::munmap(const_cast<std::uint32_t*>(other), kLong);
}

TEST_F(ProgramSignals, OtherThreadsAccessesAreNotLostInAnInstructionsPage) {
  std::atomic<bool> stop = false;
  std::thread changes([&] {
    while (!stop) Or(words_[kSpacing]);
  });
  int lost = 0;
  for (std::uint32_t i = 1; i <= 30000; ++i) {
    words_[kFilter] = i;
    if (words_[kFilter] != i) ++lost;
  }
  stop = true;
  changes.join();
  EXPECT_EQ(lost, 0);
}

#endif

volatile std::uint32_t* shared_word;

TEST_F(ProgramSignals, AHandlerThatBlocksAllOthersReachesRegisters) {
  shared_word = words_ + kSpacing;
  struct sigaction action {};
  action.sa_handler = [](int) { *shared_word = 9; };
  sigfillset(&action.sa_mask);
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  raise(SIGUSR1);
  EXPECT_EQ(words_[kSpacing], 9u);
}

#if defined(__x86_64__)

TEST_F(ProgramSignals, AHandlerMayUseTheRegisterThatItInterrupted) {
  if (kThreadSanitizer) GTEST_SKIP() << "it blocks SIGSEGV while it runs a handler that it delayed";
  shared_word = words_ + kSpacing;
  Install(SIGUSR1, [](int) {
    ++first_calls;
    Or(*shared_word);
  });
  std::atomic<bool> stop = false;
  const pthread_t self = pthread_self();
  std::thread sender([&] {
    while (!stop) {
      pthread_kill(self, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });
  for (int i = 0; i < 5000; ++i) Or(words_[kSpacing]);
  stop = true;
  sender.join();
  EXPECT_GT(first_calls, 0);
}

TEST_F(ProgramSignals, AForkDuringAnotherThreadsInstructionLeavesTheChildItsRegisters) {
  std::atomic<bool> stop = false;
  std::thread changes([&] {
    while (!stop) Or(words_[kSpacing]);
  });
  int bad = 0;
  for (int i = 0; i < 100; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(5);
      Or(words_[kFilter]);
      words_[kFilter] = 3;
      _exit(words_[kFilter] == 3 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0) ++bad;
  }
  stop = true;
  changes.join();
  EXPECT_EQ(bad, 0);
}

#endif

}  // namespace
