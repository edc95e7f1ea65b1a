// Word access to the FPGA's registers, through the exported functions.
#include "tessaline/fpga.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/BoardFixture.h"
#include "support/Waiting.h"
#include "tessaline/log.h"

namespace tessaline_test {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kImageBlock1 = 0x43C10000;
constexpr unsigned int kNoBlock = 0x43C00400;
constexpr unsigned int kTriSpacing = 2;
constexpr unsigned int kFailed = 0xFFFFFFFF;
constexpr auto kFailedOpen = "open(/dev/mem) failed.";

// The transactions on /dev/mem, as seen by this program's open and munmap at the end of this file.
struct Transactions {
  int flags = -1;
  std::atomic<int> under_way{0};
  std::atomic<int> most_at_once{0};
  std::atomic<int> outside_the_lock{0};
  void (*at_open)() = nullptr;
} transactions;

bool LockIsTaken() {
  if (pthread_mutex_trylock(&fpga_contol) == EBUSY) return true;
  pthread_mutex_unlock(&fpga_contol);
  return false;
}

bool SigintIsBlocked() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, SIGINT) == 1;
}

class FpgaAccess : public BoardFixture {
 protected:
  FpgaAccess() : BoardFixture("K3610") {}
  void SetUp() override {
    BoardFixture::SetUp();
    log_set_quiet(true);
  }
  // Resets the state for later cases in this process.
  void TearDown() override {
    transactions.at_open = nullptr;
    if (LockIsTaken()) pthread_mutex_unlock(&fpga_contol);
    BoardFixture::TearDown();
  }

  static void FailNextOpen() { tessaline_board_fault("fpga", "open", 0, 1, EACCES); }
};

TEST_F(FpgaAccess, ReadsBackWhatWasWritten) {
  EXPECT_EQ(fpga_write_addr(kImageBlock1, kTriSpacing, 200000), 0u);
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), 200000u);
  EXPECT_THAT(Accesses(), ElementsAre(Wrote(fpga::kReg.TRI_SPACING, 200000),
                                      Read(fpga::kReg.TRI_SPACING, 200000)));
}

TEST_F(FpgaAccess, RefusesAWordOutsideTheMapping) {
  EXPECT_EQ(fpga_read_addr(kImageBlock1, 63), kFailed);
  EXPECT_EQ(fpga_write_addr(kImageBlock1, 1u << 30, 1), kFailed);
  EXPECT_THAT(Accesses(), IsEmpty());
}

TEST_F(FpgaAccess, ReachesTheLastWordOfTheMapping) {
  constexpr unsigned int kLast = 62;
  const fpga::Register last{fpga::Block::kImage1, 4 * kLast, "the last word"};
  EXPECT_EQ(fpga_write_addr(kImageBlock1, kLast, 0x12345678), 0u);
  EXPECT_EQ(Get(last), 0x12345678u);
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kLast), 0x12345678u);
}

TEST_F(FpgaAccess, AnUnmappableBlockReadsAsAllOnes) {
  EXPECT_EQ(fpga_read_addr(kNoBlock, 0), kFailed);
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), 0u);
}

TEST_F(FpgaAccess, OpensForReadingAndWritingWithoutBlocking) {
  constexpr int kAsked = O_ACCMODE | O_NONBLOCK;
  fpga_read_addr(kImageBlock1, kTriSpacing);
  EXPECT_EQ(transactions.flags & kAsked, O_RDWR | O_NONBLOCK);
  transactions.flags = -1;
  fpga_write_addr(kImageBlock1, kTriSpacing, 1);
  EXPECT_EQ(transactions.flags & kAsked, O_RDWR | O_NONBLOCK);
}

// The board allows 64 mappings at a time.
TEST_F(FpgaAccess, LeavesNeitherDescriptorNorMappingBehind) {
  const int before = OpenDescriptors();
  for (unsigned int i = 0; i < 100; ++i) {
    ASSERT_EQ(fpga_write_addr(kImageBlock1, kTriSpacing, i), 0u);
    ASSERT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), i);
    ASSERT_EQ(fpga_read_addr(kImageBlock1, 63), kFailed);
    ASSERT_EQ(fpga_read_addr(kNoBlock, 0), kFailed);
  }
  EXPECT_TRUE(tessaline_test::NoDescriptorsAreLeft(before));
}

// --- The line of an access ----------------------------------------------------------------

struct Line {
  std::string text;
  int level;
  bool lock_taken;
  unsigned int spacing;  // the FPGA's value when the line was logged
};
std::vector<Line> logged;

TEST_F(FpgaAccess, LogsTheByteAddressBeforeTheAccess) {
  log_add_callback(
      [](log_Event* event) {
        char text[64];
        vsnprintf(text, sizeof text, event->fmt, event->ap);
        logged.push_back({text, event->level, LockIsTaken(), Get(fpga::kReg.TRI_SPACING)});
      },
      nullptr, TESSALINE_LOG_TRACE);
  fpga_write_addr(kImageBlock1, kTriSpacing, 7);
  fpga_read_addr(0x83C50000, 21);
  ASSERT_EQ(logged.size(), 2u);
  EXPECT_EQ(logged[0].text, "fpga_write_addr: 43c10008");
  EXPECT_EQ(logged[0].spacing, 0u);
  EXPECT_EQ(logged[1].text, "fpga_read_addr: 83c50054");
  for (const Line& line : logged) {
    EXPECT_EQ(line.level, TESSALINE_LOG_TRACE);
    EXPECT_FALSE(line.lock_taken);
  }
}

// --- The lock -----------------------------------------------------------------------------

TEST_F(FpgaAccess, TwoThreadsTakeTurns) {
  constexpr unsigned int kRounds = 50;
  constexpr unsigned int kFilterHeight = 12;
  transactions.at_open = [] { ReallyWait(milliseconds(1)); };
  const auto access = [](unsigned int index) {
    for (unsigned int i = 1; i <= kRounds; ++i) fpga_write_addr(kImageBlock1, index, i);
  };
  std::thread other(access, kFilterHeight);
  access(kTriSpacing);
  other.join();
  EXPECT_EQ(transactions.most_at_once, 1);
  EXPECT_EQ(transactions.outside_the_lock, 0);
  EXPECT_FALSE(LockIsTaken());
  EXPECT_EQ(Accesses().size(), 2 * kRounds);
  EXPECT_EQ(Get(fpga::kReg.TRI_SPACING), kRounds);
  EXPECT_EQ(Get(fpga::kReg.IMG_FILTER_HEIGHT), kRounds);
}

TEST_F(FpgaAccess, AFailedOpenIsFinal) {
  FailNextOpen();
  EXPECT_EQ(fpga_write_addr(kImageBlock1, kTriSpacing, 1), kFailed);
  EXPECT_EQ(Printed(), kFailedOpen);
  EXPECT_TRUE(LockIsTaken());
  EXPECT_FALSE(SigintIsBlocked());
}

// Whoever waits for the next access should know why.
TEST_F(FpgaAccess, AFailedOpenTellsWhatFollows) {
  FailNextOpen();
  ::testing::internal::CaptureStderr();
  fpga_write_addr(kImageBlock1, kTriSpacing, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "open(/dev/mem) failed: later accesses block; restart the process\n");
}

TEST_F(FpgaAccess, AFailedOpenIsFinalForAReadToo) {
  FailNextOpen();
  EXPECT_EQ(fpga_read_addr(kImageBlock1, kTriSpacing), kFailed);
  EXPECT_EQ(Printed(), kFailedOpen);
  EXPECT_TRUE(LockIsTaken());
}

TEST_F(FpgaAccess, TheAccessAfterAFailedOpenBlocks) {
  FailNextOpen();
  fpga_write_addr(kImageBlock1, kTriSpacing, 1);
  std::atomic<bool> done{false};
  std::thread next([&done] {
    fpga_write_addr(kImageBlock1, kTriSpacing, 2);
    done = true;
  });
  ReallyWait(milliseconds(100));
  EXPECT_FALSE(done);
  EXPECT_THAT(Steps(), IsEmpty());
  EXPECT_EQ(Printed(), kFailedOpen);
  // This only lets the thread finish.
  pthread_mutex_unlock(&fpga_contol);
  next.join();
}

// --- SIGINT -------------------------------------------------------------------------------

TEST_F(FpgaAccess, RestoresTheSignalMask) {
  fpga_write_addr(kImageBlock1, kTriSpacing, 1);
  EXPECT_FALSE(SigintIsBlocked());
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
  fpga_read_addr(kImageBlock1, kTriSpacing);
  EXPECT_TRUE(SigintIsBlocked());
  pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
}

enum class Handled { kNot, kWhileTheLockWasFree, kWhileTheLockWasTaken };
volatile sig_atomic_t handled;

// An interrupt during an access waits until the access ends.
TEST_F(FpgaAccess, TheSigintHandlerNeverFindsItsOwnThreadHoldingTheLock) {
  handled = static_cast<int>(Handled::kNot);
  signal(SIGINT, [](int) {
    handled = static_cast<int>(LockIsTaken() ? Handled::kWhileTheLockWasTaken
                                             : Handled::kWhileTheLockWasFree);
  });
  transactions.at_open = [] { raise(SIGINT); };
  fpga_write_addr(kImageBlock1, kTriSpacing, 1);
  EXPECT_EQ(static_cast<Handled>(handled), Handled::kWhileTheLockWasFree);
}

// How a child process ended, and what it had printed.
struct Outcome {
  int status = -1;
  std::string printed;
};

// Runs the work in a child with its own board. The child exits with 42 if the work returns.
Outcome InAChild(const std::function<void()>& work) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    alarm(20);                // a child that hangs is a failure
    signal(SIGINT, SIG_DFL);  // the shell may have changed it
    log_set_quiet(true);
    tessaline_board_select("K3610");
    work();
    _exit(42);
  }
  close(ends[1]);
  Outcome outcome;
  char chunk[256];
  for (ssize_t got; (got = read(ends[0], chunk, sizeof chunk)) > 0;) {
    outcome.printed.append(chunk, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  waitpid(child, &outcome.status, 0);
  return outcome;
}

TEST(FpgaAccessAfterAFailedOpen, IsEndedBySigint) {
  const Outcome outcome = InAChild([] {
    tessaline_board_fault("fpga", "open", 0, 1, EACCES);
    fpga_write_addr(kImageBlock1, kTriSpacing, 1);
    // Sent to this thread, even if other threads could take it.
    std::thread([blocked = pthread_self()] {
      ReallyWait(milliseconds(100));
      pthread_kill(blocked, SIGINT);
    }).detach();
    fpga_write_addr(kImageBlock1, kTriSpacing, 2);
  });
  ASSERT_TRUE(WIFSIGNALED(outcome.status));
  EXPECT_EQ(WTERMSIG(outcome.status), SIGINT);
}

TEST(FailedOpen, IsToldAtOnce) {
  const Outcome outcome = InAChild([] {
    tessaline_board_fault("fpga", "open", 0, 1, EACCES);
    fpga_read_addr(kImageBlock1, kTriSpacing);
    _exit(42);  // buffered output is lost
  });
  EXPECT_EQ(outcome.printed, kFailedOpen);
}

}  // namespace
}  // namespace tessaline_test

// --- In front of the board's, for the whole program ---------------------------------------

extern "C" int open(const char* path, int flags, ...) {
  using tessaline_test::transactions;
  static const auto next =
      reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const bool is_memory = std::string_view(path) == "/dev/mem";
  if (is_memory) {
    if (!tessaline_test::LockIsTaken()) ++transactions.outside_the_lock;
    transactions.flags = flags;
    if (++transactions.under_way > transactions.most_at_once) {
      transactions.most_at_once = transactions.under_way.load();
    }
    if (transactions.at_open != nullptr) transactions.at_open();
  }
  return next(path, flags, mode);
}

extern "C" int munmap(void* address, size_t length)
#if defined(__GLIBC__)
    __THROW
#endif
{
  static const auto next = reinterpret_cast<int (*)(void*, size_t)>(dlsym(RTLD_NEXT, "munmap"));
  --tessaline_test::transactions.under_way;
  return next(address, length);
}
