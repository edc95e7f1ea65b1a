#include "tessaline/fpga.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>

#include "function/RegisterLock.h"
#include "log/Log.h"
#include "thread/NotCancellable.h"
#include "thread/SystemCalls.h"

namespace VeltranoSDK {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kFailed = 0xFFFFFFFFu;
constexpr std::size_t kMappedBytes = 255;
constexpr unsigned int kWordsInMapping = kMappedBytes / sizeof(std::uint32_t);

// The longest time that a signal is held back from a thread waiting for the lock.
constexpr long kSliceNs = 20'000'000;

// Longer than the longest pulse, the camera's reset.
constexpr std::chrono::milliseconds kEndingPatience{500};

std::atomic<bool> out_of_reach{false};

// No thread has the id 0.
std::atomic<pthread_t> ending_thread{};
std::atomic<Clock::duration> ending_waits_until{};
std::atomic<bool> closed_to_others{false};

bool EndsTheProcess() { return pthread_equal(ending_thread, pthread_self()) != 0; }

timespec EndOfSlice() {
  constexpr long kNsPerSecond = 1'000'000'000;
  timespec end{};
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_nsec += kSliceNs;
  end.tv_sec += end.tv_nsec / kNsPerSecond;
  end.tv_nsec %= kNsPerSecond;
  return end;
}

unsigned long ByteAddress(unsigned int block_base, unsigned int index) {
  return static_cast<unsigned long>(block_base) + 4ul * index;
}

}  // namespace

RegisterLock::RegisterLock() : held_(Acquire()) {}

RegisterLock::~RegisterLock() {
  if (held_) pthread_mutex_unlock(&fpga_contol);
}

// Signals are blocked while the lock is held, so that no handler finds its own thread holding it.
// The wait lets them through: after a failed open the lock is never free again, and SIGINT must
// still reach a process whose only thread waits here.
bool RegisterLock::Acquire() {
  for (;;) {
    no_handler_here_.reset();  // a signal of the last slice is delivered here
    no_handler_here_.emplace();
    const timespec until = EndOfSlice();
    if (pthread_mutex_clocklock(&fpga_contol, CLOCK_MONOTONIC, &until) != ETIMEDOUT) return true;
    if (!EndsTheProcess()) continue;
    if (out_of_reach || Clock::now().time_since_epoch() > ending_waits_until.load()) return false;
  }
}

// Maps the block for one access. A word outside the mapping, or a block that cannot be mapped,
// reads as all ones, like an address nobody answers on.
template <typename Access>
unsigned int RegisterLock::Reach(unsigned int block_base, unsigned int index, Access access) {
  if (!held_) held_ = Acquire();
  if (!held_ && out_of_reach) return kFailed;

  const int fd = OpenDevice("/dev/mem", O_RDWR | O_NONBLOCK);
  if (fd < 0) {
    // The lock stays taken: a board whose registers were once out of reach is in an unknown state,
    // and nothing may touch it until the process restarts.
    out_of_reach = true;
    held_ = false;
    no_handler_here_.reset();
    printf("open(/dev/mem) failed.");
    fflush(stdout);
    fputs("open(/dev/mem) failed: later accesses block; restart the process\n", stderr);
    return kFailed;
  }
  void* block = mmap(nullptr, kMappedBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                     static_cast<off_t>(block_base));
  unsigned int result = kFailed;
  if (block != MAP_FAILED && index < kWordsInMapping) {
    result = access(static_cast<volatile std::uint32_t*>(block) + index);
  }
  close(fd);
  if (block != MAP_FAILED) munmap(block, kMappedBytes);
  return result;
}

unsigned int RegisterLock::Read(unsigned int block_base, unsigned int index) {
  return Reach(block_base, index, [](volatile std::uint32_t* word) { return *word; });
}

unsigned int RegisterLock::Write(unsigned int block_base, unsigned int index, unsigned int value) {
  return Reach(block_base, index, [value](volatile std::uint32_t* word) {
    if (closed_to_others && !EndsTheProcess()) return kFailed;
    *word = value;
    return 0u;
  });
}

void TraceRead(unsigned int block_base, unsigned int index) {
  LogTrace()("fpga_read_addr: %lx", ByteAddress(block_base, index));
}

void TraceWrite(unsigned int block_base, unsigned int index) {
  LogTrace()("fpga_write_addr: %lx", ByteAddress(block_base, index));
}

void CloseRegistersToOthers() {
  ending_waits_until = (Clock::now() + kEndingPatience).time_since_epoch();
  ending_thread = pthread_self();
  const RegisterLock after_a_change_under_way;
  closed_to_others = true;
}

}  // namespace VeltranoSDK

extern "C" {

pthread_mutex_t fpga_contol = PTHREAD_MUTEX_INITIALIZER;

unsigned int fpga_read_addr(unsigned int block_base, unsigned int index) {
  const VeltranoSDK::NotCancellable whole;
  VeltranoSDK::TraceRead(block_base, index);
  return VeltranoSDK::RegisterLock().Read(block_base, index);
}

unsigned int fpga_write_addr(unsigned int block_base, unsigned int index, unsigned int value) {
  const VeltranoSDK::NotCancellable whole;
  VeltranoSDK::TraceWrite(block_base, index);
  return VeltranoSDK::RegisterLock().Write(block_base, index, value);
}

}  // extern "C"
