#include "tessaline/fpga.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "function/InterruptibleWait.h"
#include "function/RegisterReach.h"
#include "function/SignalMask.h"
#include "log/Log.h"

namespace {

using VeltranoSDK::SigintBlocked;

constexpr unsigned int kFailed = 0xFFFFFFFFu;
constexpr std::size_t kMappedBytes = 255;
constexpr unsigned int kWordsInMapping = kMappedBytes / sizeof(std::uint32_t);

std::atomic<bool> out_of_reach{false};

// No thread has the id 0.
std::atomic<pthread_t> does_not_wait{};

// The longest an interrupt waits for a thread that waits for the lock.
constexpr long kSliceNs = 20'000'000;

timespec EndOfSlice() {
  constexpr long kNsPerSecond = 1'000'000'000;
  timespec end{};
  clock_gettime(CLOCK_REALTIME, &end);
  end.tv_nsec += kSliceNs;
  end.tv_sec += end.tv_nsec / kNsPerSecond;
  end.tv_nsec %= kNsPerSecond;
  return end;
}

// The SIGINT handler itself writes registers: were it to run on a thread that holds
// the lock, it would wait for ever. So the lock is held with SIGINT blocked. It is
// not waited for like that: after a failed open it is never free again, and an
// interrupt must still reach a process whose only thread waits here. False for the
// thread that ends the process, which does not wait for ever.
bool LockRegisters(std::optional<SigintBlocked>& no_handler_here) {
  for (;;) {
    no_handler_here.reset();  // a SIGINT of the last slice is delivered here
    no_handler_here.emplace();
    const timespec until = EndOfSlice();
    if (pthread_mutex_timedlock(&fpga_contol, &until) != ETIMEDOUT) return true;
    if (pthread_equal(does_not_wait, pthread_self()) &&
        (out_of_reach || std::chrono::steady_clock::now() > VeltranoSDK::LastMomentOfWaits())) {
      return false;
    }
  }
}

// Maps the block for the length of one access. A word outside the mapping or an
// unmappable block reads as all ones, like an address nothing answers on.
template <typename Access>
unsigned int Transact(unsigned int block_base, unsigned int index, Access access) {
  std::optional<SigintBlocked> no_handler_here;
  if (!LockRegisters(no_handler_here)) return kFailed;

  const int fd = open("/dev/mem", O_RDWR | O_NONBLOCK);
  if (fd < 0) {
    // The lock stays taken: a board whose registers were once out of reach is
    // in no known state, and nothing may touch it until the process restarts.
    out_of_reach = true;
    printf("open(/dev/mem) failed.");
    fflush(stdout);
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
  pthread_mutex_unlock(&fpga_contol);
  return result;
}

unsigned long ByteAddress(unsigned int block_base, unsigned int index) {
  return static_cast<unsigned long>(block_base) + 4ul * index;
}

}  // namespace

namespace VeltranoSDK {

void DoNotWaitForLostRegisters() { does_not_wait = pthread_self(); }

}  // namespace VeltranoSDK

extern "C" {

pthread_mutex_t fpga_contol = PTHREAD_MUTEX_INITIALIZER;

unsigned int fpga_read_addr(unsigned int block_base, unsigned int index) {
  VeltranoSDK::LogTrace("fpga_read_addr: %lx", ByteAddress(block_base, index));
  return Transact(block_base, index, [](volatile std::uint32_t* word) { return *word; });
}

unsigned int fpga_write_addr(unsigned int block_base, unsigned int index, unsigned int value) {
  VeltranoSDK::LogTrace("fpga_write_addr: %lx", ByteAddress(block_base, index));
  return Transact(block_base, index, [value](volatile std::uint32_t* word) {
    *word = value;
    return 0u;
  });
}

}  // extern "C"
