#include "devices/FpgaWindow.h"

#include <errno.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <optional>
#include <span>

#include "Interpose.h"
#include "ProgramSignals.h"
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
// The part of a signal mask that the kernel knows and that a handler's context has.
constexpr std::size_t kMaskBytes = (_NSIG - 1) / 8;

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
  // A page is accessible for one instruction. The accesses that are made without it exclude it.
  std::atomic<bool> open{false};
  std::atomic<unsigned> accesses{0};
  // Threads that read from the FPGA without a lock.
  std::atomic<unsigned> readers{0};

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

// Needs no lock and no transcript, so it is not a call of the board. The FPGA stays meanwhile.
bool LoadWithoutLock(Window& window, off_t physical, std::span<std::byte> bytes) {
  window.readers.fetch_add(1);
  FpgaModel* const model = window.fpga;
  const bool there = model != nullptr && Board::PluggedIn();
  if (there) Load(window, *model, physical, bytes, false);
  window.readers.fetch_sub(1);
  return there;
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
  } else if (!first && LoadWithoutLock(window, physical, bytes)) {
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
  std::array<std::byte, kMaskBytes> blocked{};  // by the program
};
thread_local constinit Step step{};

void ClosePage(const OpenPage& page) {
  std::array<std::uint32_t, kRegistersPerBlock> now{};
  // Another thread may be writing. From here on its writes fault, and so are not lost.
  real::Mprotect(page.words, kPageBytes, PROT_READ);
  std::copy_n(page.words, now.size(), now.begin());
  const off_t start = page.window->PhysicalOf(reinterpret_cast<std::uintptr_t>(page.words));
  OnRegisters(*page.window, [&](FpgaModel& model) {
    for (std::size_t i = 0; i < now.size(); ++i) {
      if (i != page.written && now[i] == page.shown[i]) continue;
      const off_t at = start + static_cast<off_t>(i * kWordBytes);
      Write(model, PlaceAt(at, page.window->bases), now[i]);
    }
  });
  real::Mprotect(page.words, kPageBytes, PROT_NONE);
  page.window->open = false;
}

// The pages belong to one instruction, so no other signal's handler may run before it.
bool BeginStep(ucontext_t& context) {
  if (!StepOne(context, true)) return false;
  std::memcpy(step.blocked.data(), &context.uc_sigmask, kMaskBytes);
  const sigset_t deferrable = DeferrableSignals();
  for (int number = 1; number < _NSIG; ++number) {
    if (sigismember(&deferrable, number) == 1) sigaddset(&context.uc_sigmask, number);
  }
  sigdelset(&context.uc_sigmask, SIGTRAP);
  return true;
}

void EndStep(ucontext_t& context) {
  StepOne(context, false);
  std::memcpy(&context.uc_sigmask, step.blocked.data(), kMaskBytes);
  for (std::size_t i = 0; i < step.count; ++i) ClosePage(step.pages[i]);
  step.count = 0;
}

// The instruction faulted again. It has not done anything yet, and perhaps never will.
void AbandonStep(ucontext_t& context) {
  for (std::size_t i = 0; i < step.count; ++i) step.pages[i].written = kRegistersPerBlock;
  EndStep(context);
}

// The instruction is done.
void OnStep(int number, siginfo_t* info, void* context) {
  const int error = errno;
  if (step.count == 0 || info->si_code != TRAP_TRACE) {
    return PassToProgram(number, info, context);
  }
  EndStep(*static_cast<ucontext_t*>(context));
  errno = error;
}

// Other threads see the page as soon as they can access it, so it must have its content before.
bool ShowPage(const OpenPage& page) {
  void* const filled =
      real::Mmap(nullptr, kPageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (filled == MAP_FAILED) return false;
  std::memcpy(filled, page.shown.data(), sizeof page.shown);
  return real::Mremap(filled, kPageBytes, kPageBytes, MREMAP_MAYMOVE | MREMAP_FIXED, page.words) ==
         page.words;
}

// Opens the page for the instruction that faulted.
bool OpenForOneInstruction(Window& window, std::uintptr_t address, bool writes,
                           ucontext_t& context) {
  if (step.count == step.pages.size()) return false;
  for (std::size_t i = 0; i < step.count; ++i) {
    if (step.pages[i].window == &window) return false;  // it crosses into the next page
  }
  if (window.open.exchange(true)) {
    // Another thread's instruction sees this page. It is tried again until that is over. That
    // thread may wait for a page of this one.
    if (step.count > 0) AbandonStep(context);
    sched_yield();
    return true;
  }
  while (window.accesses != 0) sched_yield();
  if (step.count == 0 && !BeginStep(context)) {
    window.open = false;
    return false;
  }
  OpenPage& page = step.pages[step.count];
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
  if (!ShowPage(page)) {
    window.open = false;
    AbandonStep(context);
    return false;
  }
  ++step.count;
  return true;
}

bool HandleTouch(std::uintptr_t address, ucontext_t& context) {
  Window* const window = Find(address);
  if (window == nullptr) return false;
  const auto access = LoadStore::At(context);
  const bool writes = access ? access->Stores() : FaultedOnWrite(context);
  if ((window->protection & (writes ? PROT_WRITE : PROT_READ)) == 0) return false;
  if (!access) return OpenForOneInstruction(*window, address, writes, context);
  window->accesses.fetch_add(1);
  // What another thread's instruction changes has its effect first.
  const bool wait = window->open;
  const bool done = wait || Emulate(*window, *access, address, context);
  window->accesses.fetch_sub(1);
  if (wait) sched_yield();
  return done;
}

void OnSegmentationFault(int number, siginfo_t* info, void* context) {
  const int error = errno;
  auto& caller = *static_cast<ucontext_t*>(context);
  // A thread that ended in the middle would keep the window.
  int cancellation = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancellation);
  const bool handled = HandleTouch(reinterpret_cast<std::uintptr_t>(info->si_addr), caller);
  pthread_setcancelstate(cancellation, &cancellation);
  if (handled) {
    errno = error;
    return;
  }
  if (step.count > 0) AbandonStep(caller);
  PassToProgram(number, info, context);
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
  TakeSignal(SIGSEGV, OnSegmentationFault);
  TakeSignal(SIGTRAP, OnStep);
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
    if (!window.fpga.compare_exchange_strong(mine, nullptr)) continue;
    while (window.readers != 0) sched_yield();
  }
}

void CloseFpgaWindowsAfterFork() {
  for (Window& window : windows) {
    window.readers = 0;
    window.accesses = 0;
    const std::uintptr_t base = window.base;
    if (!window.open || base <= kBeingSetUp) continue;
    real::Mprotect(reinterpret_cast<void*>(base), window.bytes, PROT_NONE);
    window.open = false;
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
