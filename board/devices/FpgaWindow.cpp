#include "devices/FpgaWindow.h"

#include <errno.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>

#include "Interpose.h"
#include "RealCalls.h"
#include "Transcript.h"
#include "devices/LoadStore.h"
#include "model/FpgaModel.h"

namespace board {
namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr std::uintptr_t kPageBytes = 4096;
constexpr std::size_t kWordBytes = 4;
constexpr std::size_t kMaxWindows = 64;
// What the interconnect sends to one block. Its registers are at the start.
constexpr off_t kBlockRange = 0x10000;
constexpr std::size_t kMaxBytes = 16 << 20;

// Values of a window's base that are not addresses.
constexpr std::uintptr_t kFree = 0;
constexpr std::uintptr_t kBeingSetUp = 1;

struct Window {
  std::atomic<std::uintptr_t> base{kFree};
  std::size_t bytes = 0;
  std::atomic<FpgaModel*> fpga{nullptr};  // null: it is gone
  fpga::RegionBases bases{};
  off_t physical = 0;
  std::atomic<int> protection{PROT_NONE};
  std::atomic<bool> touched{false};
  // A page is accessible for one instruction.
  std::atomic<bool> open{false};

  bool Holds(std::uintptr_t address) const {
    const std::uintptr_t start = base.load(std::memory_order_acquire);
    return start > kBeingSetUp && address >= start && address - start < bytes;
  }
  off_t PhysicalOf(std::uintptr_t address) const {
    return physical + static_cast<off_t>(address - base.load());
  }
};

// The signal handlers walk through these.
constinit std::array<Window, kMaxWindows> windows{};
struct sigaction before_fault_handler;
struct sigaction before_step_handler;
thread_local bool in_previous_handler = false;

Window* Find(std::uintptr_t address) {
  const auto found =
      std::ranges::find_if(windows, [=](const Window& window) { return window.Holds(address); });
  return found == windows.end() ? nullptr : &*found;
}

Window* Find(const void* address) { return Find(reinterpret_cast<std::uintptr_t>(address)); }

struct Place {
  fpga::Block block;
  std::uint32_t offset;

  bool IsRegister() const { return offset < kWordBytes * kRegistersPerBlock; }
};

std::optional<Place> PlaceAt(off_t physical, fpga::RegionBases bases) {
  for (std::size_t i = 0; i < fpga::kBlockCount; ++i) {
    const auto block = static_cast<fpga::Block>(i);
    const off_t distance = physical - static_cast<off_t>(fpga::BaseAddress(block, bases));
    if (distance >= 0 && distance < kBlockRange) {
      return Place{block, static_cast<std::uint32_t>(distance)};
    }
  }
  return std::nullopt;
}

void RecordAccess(const char* kind, const Place& place, std::uint32_t value) {
  if (!Recording()) return;
  const auto* reg = fpga::FindRegister(place.block, place.offset);
  const std::string name =
      reg != nullptr ? std::string(reg->name.View()) : fmt::format("0x{:02x}", place.offset);
  Record("fpga",
         fmt::format("{} {} {} = 0x{:08x}", kind, fpga::Info(place.block).name, name, value));
}

std::uint32_t Value(const FpgaModel& model, const std::optional<Place>& place) {
  return place && place->IsRegister() ? model.Value(place->block, place->offset) : 0;
}

void Write(FpgaModel& model, const std::optional<Place>& place, std::uint32_t value) {
  if (!place || !place->IsRegister()) return;
  RecordAccess("write", *place, value);
  model.Write(place->block, place->offset, value);
}

// Calls `part` with each word that the bytes touch: its physical address, its bytes in `bytes`, and
// where in the word they are.
template <typename Part>
void ForEachWord(off_t physical, std::size_t bytes, Part part) {
  for (std::size_t i = 0; i < bytes;) {
    const off_t at = physical + static_cast<off_t>(i);
    const auto lane = static_cast<std::size_t>(at) % kWordBytes;
    const std::size_t count = std::min(kWordBytes - lane, bytes - i);
    part(at - static_cast<off_t>(lane), i, lane, count);
    i += count;
  }
}

// `shown`: the transcript has it.
void Load(const Window& window, FpgaModel& model, off_t physical, std::span<std::byte> bytes,
          bool shown) {
  ForEachWord(physical, bytes.size(), [&](off_t at, auto from, auto lane, auto count) {
    const std::optional<Place> place = PlaceAt(at, window.bases);
    const std::uint32_t value = Value(model, place);
    std::memcpy(&bytes[from], reinterpret_cast<const std::byte*>(&value) + lane, count);
    if (shown && place && place->IsRegister()) RecordAccess("read", *place, value);
  });
}

// The bus has a strobe for each byte, so the other bytes of a register stay as they are.
void Store(const Window& window, FpgaModel& model, off_t physical,
           std::span<const std::byte> bytes) {
  ForEachWord(physical, bytes.size(), [&](off_t at, auto from, auto lane, auto count) {
    const std::optional<Place> place = PlaceAt(at, window.bases);
    std::uint32_t value = count == kWordBytes ? 0 : Value(model, place);
    std::memcpy(reinterpret_cast<std::byte*>(&value) + lane, &bytes[from], count);
    Write(model, place, value);
  });
}

// Runs an access to the registers as a system call would. Those of a board that is gone read as all
// ones, and writes are lost.
template <typename Access>
bool OnRegisters(const Window& window, Access access) {
  return InBoard(false, [&] {
    const std::shared_ptr<Board> board = Board::Current();
    FpgaModel* const model = window.fpga;
    const bool there = board != nullptr && &board->fpga() == model;
    if (there) access(*model);
    return there;
  });
}

bool Emulate(Window& window, const LoadStore& access, std::uintptr_t address, ucontext_t& context) {
  std::array<std::byte, LoadStore::kMostBytes> room;
  const std::span bytes(room.data(), access.Bytes());
  if (!window.Holds(address + bytes.size() - 1)) return false;
  const off_t physical = window.PhysicalOf(address);
  // Of the reads through one mapping the transcript has the first, because programs also look at
  // whole blocks and wait in loops.
  const bool first = !window.touched.exchange(true);
  if (access.Stores()) {
    access.Get(context, bytes);
    OnRegisters(window, [&](FpgaModel& model) { Store(window, model, physical, bytes); });
  } else if (FpgaModel* const model = window.fpga;
             !first && model != nullptr && Board::PluggedIn()) {
    // Needs no lock and no transcript, so it is not a call of the board.
    Load(window, *model, physical, bytes, false);
    access.Put(context, bytes);
  } else {
    std::ranges::fill(bytes, std::byte{0xFF});
    OnRegisters(window, [&](FpgaModel& model) { Load(window, model, physical, bytes, first); });
    access.Put(context, bytes);
  }
  access.Finish(context);
  return true;
}

// A page that is open while this thread makes one instruction.
struct OpenPage {
  Window* window;
  std::uint32_t* words;
  std::size_t written;  // this word counts as written; none: kRegistersPerBlock
  std::array<std::uint32_t, kRegistersPerBlock> shown;
};

// An instruction can copy from one window to another.
struct Step {
  std::array<OpenPage, 2> pages;
  std::size_t count = 0;
  bool trap_was_blocked = false;
};
thread_local constinit Step step{};

void InstallHandler(int number, void (*handler)(int, siginfo_t*, void*), struct sigaction& before) {
  struct sigaction current {};
  sigaction(number, nullptr, &current);
  if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == handler) return;
  before = current;
  struct sigaction action {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

// Passes a signal on to the handler before ours.
void PassOn(int number, siginfo_t* info, void* context, const struct sigaction& before) {
  // That handler may put ours back and raise the signal again; then it has had its turn.
  if (info->si_code <= 0 && in_previous_handler) {
    signal(number, SIG_DFL);
    raise(number);
    return;
  }
  in_previous_handler = true;
  if ((before.sa_flags & SA_SIGINFO) != 0) {
    before.sa_sigaction(number, info, context);
  } else if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN) {
    before.sa_handler(number);
  } else {
    // With the default action back, the faulting instruction runs again and ends the process.
    signal(number, SIG_DFL);
  }
  in_previous_handler = false;
}

void ClosePage(const OpenPage& page) {
  std::array<std::uint32_t, kRegistersPerBlock> now{};
  std::copy_n(page.words, now.size(), now.begin());
  real::Mprotect(page.words, kPageBytes, PROT_NONE);
  const off_t start = page.window->PhysicalOf(reinterpret_cast<std::uintptr_t>(page.words));
  OnRegisters(*page.window, [&](FpgaModel& model) {
    for (std::size_t i = 0; i < now.size(); ++i) {
      if (i != page.written && now[i] == page.shown[i]) continue;
      const off_t at = start + static_cast<off_t>(i * kWordBytes);
      Write(model, PlaceAt(at, page.window->bases), now[i]);
    }
  });
  page.window->open = false;
}

// The instruction is done.
void OnStep(int number, siginfo_t* info, void* context) {
  if (step.count == 0) return PassOn(number, info, context, before_step_handler);
  auto& caller = *static_cast<ucontext_t*>(context);
  StepOne(caller, false);
  if (step.trap_was_blocked) sigaddset(&caller.uc_sigmask, SIGTRAP);
  for (std::size_t i = 0; i < step.count; ++i) ClosePage(step.pages[i]);
  step.count = 0;
}

// Opens the page for the instruction that faulted.
bool OpenForOneInstruction(Window& window, std::uintptr_t address, bool writes,
                           ucontext_t& context) {
  if (step.count == step.pages.size()) return false;
  for (std::size_t i = 0; i < step.count; ++i) {
    if (step.pages[i].window == &window) return false;  // it crosses into the next page
  }
  // Another thread's instruction sees this page. It is tried again until that is over.
  if (window.open.exchange(true)) return true;
  if (!StepOne(context, true)) {
    window.open = false;
    return false;
  }
  if (step.count == 0) {
    InstallHandler(SIGTRAP, OnStep, before_step_handler);
    step.trap_was_blocked = sigismember(&context.uc_sigmask, SIGTRAP) == 1;
    sigdelset(&context.uc_sigmask, SIGTRAP);
  }
  OpenPage& page = step.pages[step.count++];
  page.window = &window;
  page.words = reinterpret_cast<std::uint32_t*>(address & ~(kPageBytes - 1));
  const std::size_t word = address % kPageBytes / kWordBytes;
  page.written = writes ? std::min(word, kRegistersPerBlock) : kRegistersPerBlock;
  page.shown.fill(~0u);
  const off_t start = window.PhysicalOf(reinterpret_cast<std::uintptr_t>(page.words));
  const bool first = !window.touched.exchange(true);
  OnRegisters(window, [&](FpgaModel& model) {
    for (std::size_t i = 0; i < page.shown.size(); ++i) {
      const auto place = PlaceAt(start + static_cast<off_t>(i * kWordBytes), window.bases);
      page.shown[i] = Value(model, place);
      if (i == word && first && !writes && place) RecordAccess("read", *place, page.shown[i]);
    }
  });
  real::Mprotect(page.words, kPageBytes, PROT_READ | PROT_WRITE);
  std::ranges::copy(page.shown, page.words);
  return true;
}

bool HandleTouch(std::uintptr_t address, ucontext_t& context) {
  Window* const window = Find(address);
  if (window == nullptr) return false;
  const auto access = LoadStore::At(context);
  const bool writes = access ? access->Stores() : FaultedOnWrite(context);
  if ((window->protection & (writes ? PROT_WRITE : PROT_READ)) == 0) return false;
  return access ? Emulate(*window, *access, address, context)
                : OpenForOneInstruction(*window, address, writes, context);
}

void OnSegmentationFault(int number, siginfo_t* info, void* context) {
  const int error = errno;
  auto& caller = *static_cast<ucontext_t*>(context);
  if (!HandleTouch(reinterpret_cast<std::uintptr_t>(info->si_addr), caller)) {
    PassOn(number, info, context, before_fault_handler);
  }
  errno = error;
}

// Before each access: a program may have installed a handler of its own since the last one, as
// crash reporters and Python's faulthandler do. That handler then gets every fault but ours.
void InstallFaultHandler() {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  InstallHandler(SIGSEGV, OnSegmentationFault, before_fault_handler);
}

Window* Reserve() {
  for (Window& window : windows) {
    std::uintptr_t free = kFree;
    if (window.base.compare_exchange_strong(free, kBeingSetUp)) return &window;
  }
  return nullptr;
}

}  // namespace

std::intptr_t OpenFpgaWindow(FpgaModel* fpga, fpga::RegionBases bases, std::size_t length,
                             int protection, off_t offset) {
  if (length == 0 || length > kMaxBytes || offset % static_cast<off_t>(kPageBytes) != 0) {
    return -EINVAL;
  }
  if (!PlaceAt(offset, bases)) return -EINVAL;
  InstallFaultHandler();
  Window* window = Reserve();
  if (window == nullptr) return -ENOMEM;
  const std::size_t bytes = (length + kPageBytes - 1) & ~(kPageBytes - 1);
  void* start = real::Mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (start == MAP_FAILED) {
    window->base = kFree;
    return -ENOMEM;
  }
  window->bytes = bytes;
  window->fpga = fpga;
  window->bases = bases;
  window->physical = offset;
  window->protection = protection;
  window->touched = false;
  window->open = false;
  window->base.store(reinterpret_cast<std::uintptr_t>(start), std::memory_order_release);
  return reinterpret_cast<std::intptr_t>(start);
}

bool IsFpgaWindow(const void* address) { return Find(address) != nullptr; }

void ForgetFpgaWindows(const void* address, std::size_t length) {
  const auto first = reinterpret_cast<std::uintptr_t>(address);
  for (Window& window : windows) {
    std::uintptr_t base = window.base.load(std::memory_order_acquire);
    if (base <= kBeingSetUp || first >= base + window.bytes) continue;
    if (base >= first && base - first < length) {
      window.base.compare_exchange_strong(base, kFree);
    } else if (first > base) {
      window.bytes = first - base;
    }
  }
}

void LoseFpga(const FpgaModel* fpga) {
  for (Window& window : windows) {
    auto* mine = const_cast<FpgaModel*>(fpga);
    window.fpga.compare_exchange_strong(mine, nullptr);
  }
}

int ProtectFpgaWindow(const void* address, int protection) {
  if (Window* const window = Find(address)) window->protection = protection;
  return 0;
}

std::size_t FpgaWindowBytes(const void* address) {
  const Window* const window = Find(address);
  const bool starts =
      window != nullptr && window->base == reinterpret_cast<std::uintptr_t>(address);
  return starts ? window->bytes : 0;
}

}  // namespace board
