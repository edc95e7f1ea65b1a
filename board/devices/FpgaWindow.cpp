#include "devices/FpgaWindow.h"

#include <errno.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "RealCalls.h"
#include "Transcript.h"
#include "model/FpgaModel.h"

namespace board {
namespace {

using VeltranoSDK::fpga::Block;

constexpr std::size_t kPageBytes = 4096;
constexpr std::size_t kMaxWindows = 64;

// Values of a window's base that are not addresses.
constexpr std::uintptr_t kFree = 0;
constexpr std::uintptr_t kBeingSetUp = 1;

enum class Touch : int { kNone, kRead, kWritten };

struct Window {
  std::atomic<std::uintptr_t> base{kFree};
  FpgaModel* fpga = nullptr;
  Block block{};
  std::atomic<Touch> touch{Touch::kNone};
  std::size_t read_offset = 0;
  std::size_t write_offset = 0;
  std::array<std::uint32_t, kRegistersPerBlock> shown{};  // the values that filled the page

  std::atomic<std::uint32_t>* Words() const {
    return reinterpret_cast<std::atomic<std::uint32_t>*>(base.load());
  }
};

// The signal handler walks through these, so they use no allocation and no lock.
constinit std::array<Window, kMaxWindows> windows{};
struct sigaction previous_handler;
thread_local bool in_previous_handler = false;

Window* Find(std::uintptr_t address) {
  const std::uintptr_t page = address & ~(kPageBytes - 1);
  if (page == 0) return nullptr;
  for (Window& window : windows) {
    if (window.base.load(std::memory_order_acquire) == page) return &window;
  }
  return nullptr;
}

void Protect(const Window& window, int protection) {
  mprotect(reinterpret_cast<void*>(window.base.load()), kPageBytes, protection);
}

// A PROT_NONE page cannot be filled, so the page is writable while it is filled and then becomes
// read-only. Meanwhile the one thread that accessed it is in this function.
void ShowLiveValues(Window& window) {
  Protect(window, PROT_READ | PROT_WRITE);
  for (std::size_t i = 0; i < kRegistersPerBlock; ++i) {
    window.shown[i] = window.fpga->Value(window.block, static_cast<std::uint32_t>(4 * i));
    window.Words()[i].store(window.shown[i], std::memory_order_relaxed);
  }
  Protect(window, PROT_READ);
}

bool HandleTouch(std::uintptr_t address) {
  Window* window = Find(address);
  if (window == nullptr) return false;
  const std::size_t offset = address & (kPageBytes - 1) & ~std::size_t{3};
  switch (window->touch.load()) {
    case Touch::kNone:
      window->read_offset = offset;
      window->touch = Touch::kRead;
      ShowLiveValues(*window);
      return true;
    case Touch::kRead:
      window->write_offset = offset;
      window->touch = Touch::kWritten;
      Protect(*window, PROT_READ | PROT_WRITE);
      return true;
    case Touch::kWritten:
      return false;
  }
  return false;
}

void OnSegmentationFault(int number, siginfo_t* info, void* context) {
  if (HandleTouch(reinterpret_cast<std::uintptr_t>(info->si_addr))) return;
  // The fault did not come from a register window. The handler before this one may put this one
  // back and raise the signal again; then it has had its turn.
  if (info->si_code <= 0 && in_previous_handler) {
    signal(number, SIG_DFL);
    raise(number);
    return;
  }
  in_previous_handler = true;
  if ((previous_handler.sa_flags & SA_SIGINFO) != 0) {
    previous_handler.sa_sigaction(number, info, context);
  } else if (previous_handler.sa_handler != SIG_DFL && previous_handler.sa_handler != SIG_IGN) {
    previous_handler.sa_handler(number);
  } else {
    // With the default action back, the faulting instruction runs again and ends the process.
    signal(number, SIG_DFL);
  }
  in_previous_handler = false;
}

// Before each access: a program may have installed a handler of its own since the last one, as
// crash reporters and Python's faulthandler do. That handler then gets every fault but ours.
void InstallHandler() {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  struct sigaction current {};
  sigaction(SIGSEGV, nullptr, &current);
  if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == OnSegmentationFault) return;
  previous_handler = current;
  struct sigaction action {};
  action.sa_sigaction = OnSegmentationFault;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, nullptr);
}

Window* Reserve() {
  for (Window& window : windows) {
    std::uintptr_t free = kFree;
    if (window.base.compare_exchange_strong(free, kBeingSetUp)) return &window;
  }
  return nullptr;
}

void RecordAccess(const char* kind, Block block, std::size_t offset, std::uint32_t value) {
  if (!Recording()) return;
  const auto byte = static_cast<std::uint32_t>(offset);
  const auto* reg = VeltranoSDK::fpga::FindRegister(block, byte);
  const std::string name =
      reg != nullptr ? std::string(reg->name.View()) : fmt::format("0x{:02x}", byte);
  Record("fpga", fmt::format("{} {} {} = 0x{:08x}", kind, VeltranoSDK::fpga::Info(block).name, name,
                             value));
}

}  // namespace

std::ptrdiff_t OpenFpgaWindow(FpgaModel* fpga, Block block, std::size_t length) {
  if (length == 0 || length > kPageBytes) return -EINVAL;
  InstallHandler();
  Window* window = Reserve();
  if (window == nullptr) return -ENOMEM;
  void* page = real::Mmap(nullptr, kPageBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    window->base = kFree;
    return -ENOMEM;
  }
  window->fpga = fpga;
  window->block = block;
  window->touch = Touch::kNone;
  window->base.store(reinterpret_cast<std::uintptr_t>(page), std::memory_order_release);
  return static_cast<std::ptrdiff_t>(reinterpret_cast<std::uintptr_t>(page));
}

bool IsFpgaWindow(const void* address) {
  return Find(reinterpret_cast<std::uintptr_t>(address)) != nullptr;
}

int CloseFpgaWindow(void* address) {
  Window& window = *Find(reinterpret_cast<std::uintptr_t>(address));
  FpgaModel& fpga = *window.fpga;
  const Block block = window.block;
  const Touch touch = window.touch;
  const std::size_t read_offset = window.read_offset;
  const std::size_t write_offset = window.write_offset;
  const std::array<std::uint32_t, kRegistersPerBlock> shown = window.shown;
  std::array<std::uint32_t, kRegistersPerBlock> now = shown;
  if (touch == Touch::kWritten) {
    for (std::size_t i = 0; i < kRegistersPerBlock; ++i) now[i] = window.Words()[i];
  }
  // The handler must not find this slot once the address is free for the next mapping.
  void* const page = reinterpret_cast<void*>(window.base.exchange(kBeingSetUp));
  real::Munmap(page, kPageBytes);
  window.base.store(kFree, std::memory_order_release);

  if (touch == Touch::kRead && read_offset / 4 < shown.size()) {
    RecordAccess("read", block, read_offset, shown[read_offset / 4]);
  }
  if (touch != Touch::kWritten) return 0;
  for (std::size_t i = 0; i < now.size(); ++i) {
    if (4 * i != write_offset && now[i] == shown[i]) continue;
    RecordAccess("write", block, 4 * i, now[i]);
    fpga.Write(block, static_cast<std::uint32_t>(4 * i), now[i]);
  }
  return 0;
}

}  // namespace board
