// Compares a register access of the library with its four bare system calls, and an atomic change
// of a register with the same change made by single accesses. Both run on the virtual board, and
// also with a plain file in place of /dev/mem. With the file, the kernel serves the calls, so they
// are as cheap as possible.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Application.h"
#include "OwnProcess.h"
#include "tessaline/board.h"
#include "tessaline/register_map.h"
#include "tessaline/tessaline.h"

namespace {

// The file to open in place of /dev/mem; null opens /dev/mem itself.
const char* memory_path = nullptr;

}  // namespace

// Overrides the board's function.
#pragma GCC visibility push(default)
extern "C" int open(const char* path, int flags, ...) {
  static const auto next =
      reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  if (memory_path != nullptr && std::string_view(path) == "/dev/mem") path = memory_path;
  return next(path, flags, mode);
}
#pragma GCC visibility pop

namespace bench {

namespace {

namespace fpga = VeltranoSDK::fpga;

constexpr std::uint32_t kBlock = fpga::BaseAddress(fpga::Block::kImage1, fpga::kZynqRegions);
constexpr std::size_t kMappedBytes = 255;
constexpr std::uint32_t kBefore = 100000;  // the register's initial value
constexpr std::uint32_t kWritten = 200000;

// Makes exactly the calls that the library makes for an access.
template <typename Touch>
std::uint32_t FourCalls(Touch touch) {
  const int fd = open("/dev/mem", O_RDWR | O_NONBLOCK);
  void* const block = mmap(nullptr, kMappedBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, kBlock);
  const std::uint32_t result =
      touch(static_cast<volatile std::uint32_t*>(block)[fpga::kReg.TRI_SPACING.Index()]);
  close(fd);
  munmap(block, kMappedBytes);
  return result;
}

std::uint32_t BareRead() {
  return FourCalls([](volatile std::uint32_t& word) { return word; });
}

std::uint32_t BareWrite() {
  return FourCalls([](volatile std::uint32_t& word) {
    word = kWritten;
    return 0u;
  });
}

std::uint32_t LibraryRead() { return fpga_read_addr(kBlock, fpga::kReg.TRI_SPACING.Index()); }

std::uint32_t LibraryWrite() {
  return fpga_write_addr(kBlock, fpga::kReg.TRI_SPACING.Index(), kWritten);
}

constexpr fpga::Field kChanged = fpga::kField.las_tri_polarity;

std::uint32_t ReadChanged() { return fpga_read_addr(kBlock, kChanged.reg.Index()); }

std::uint32_t LibraryChange() { return static_cast<std::uint32_t>(SetLasTriPolarity(1)); }

std::uint32_t SingleAccesses() {
  const std::uint32_t changed = (ReadChanged() & ~kChanged.Mask()) | kChanged.Mask();
  return fpga_write_addr(kBlock, kChanged.reg.Index(), changed);
}

using Access = std::uint32_t (*)();

struct Kind {
  const char* name;
  Access library, bare;
  Access look;
  std::uint32_t left_behind;
  bool needs_start_up = false;
};

constexpr Kind kKinds[]{
    {"register read / its four calls", LibraryRead, BareRead, BareRead, kBefore},
    {"register write / its four calls", LibraryWrite, BareWrite, BareRead, kWritten},
    {"register change / a read and a write", LibraryChange, SingleAccesses,
     [] { return ReadChanged() & kChanged.Mask(); }, kChanged.Mask(), true}};

double TimeOf(Access access, int times) {
  const double start = ThreadNanoseconds();
  std::uint32_t all = 0;
  for (int i = 0; i < times; ++i) all |= access();
  const double took = ThreadNanoseconds() - start;
  if (all == 0xFFFFFFFFu) std::exit(1);  // no device answered
  return took / times;
}

constexpr int kRounds = 200;

struct Rounds {
  double library[kRounds];
  double bare[kRounds];
};

Rounds Measure(const Kind& kind, const Options& options) {
  log_set_level(TESSALINE_LOG_ERROR);
  kind.library();
  if (kind.look() != kind.left_behind) {
    std::fprintf(stderr, "a %s left another value behind\n", kind.name);
    std::exit(1);
  }
  const int accesses = options.quick ? 5 : 200;
  const std::vector<std::function<double()>> ways{[&] { return TimeOf(kind.library, accesses); },
                                                  [&] { return TimeOf(kind.bare, accesses); }};
  Rounds rounds;
  InTurn(0, ways);
  for (int i = 0; i < kRounds; ++i) {
    const std::vector<double> took = InTurn(i, ways);
    rounds.library[i] = took[0];
    rounds.bare[i] = took[1];
  }
  return rounds;
}

void PlugInFor(const Kind& kind) {
  tessaline_board_select("K3610");
  tessaline_board_transcript_enable(0);
  if (!kind.needs_start_up) return;
  tessaline_board_set_sleep_factor(0);
  GetLibVersion("K3610");
  if (RegisterHardwareInit() != 0) std::exit(1);
}

void PrintRow(const std::string& what, const Rounds& rounds) {
  Comparison times;
  for (int i = 0; i < kRounds; ++i) times.AddRound(rounds.library[i], rounds.bare[i]);
  CompareTimes(what, times, Goal::AtMost(1.1)).Print();
}

// A file that is large enough for the block and holds one word of data.
class MemoryFile {
 public:
  MemoryFile() {
    const int fd = mkstemp(path_);
    if (fd < 0 || ftruncate(fd, off_t{kBlock} + 4096) != 0 ||
        pwrite(fd, &kBefore, sizeof kBefore, off_t{kBlock} + fpga::kReg.TRI_SPACING.offset) < 0) {
      std::perror(path_);
      std::exit(1);
    }
    close(fd);
  }
  ~MemoryFile() { unlink(path_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const char* path() const { return path_; }

 private:
  char path_[32] = "/dev/shm/tessaline_mem_XXXXXX";
};

}  // namespace

void PrintRegisterRows(const Options& options) {
  for (const Kind& kind : kKinds) {
    PrintRow(std::string(kind.name) + ", on the virtual board", InOwnProcess([&] {
               PlugInFor(kind);
               tessaline_board_register_set(static_cast<unsigned>(fpga::kReg.TRI_SPACING.block),
                                            fpga::kReg.TRI_SPACING.offset, kBefore);
               return Measure(kind, options);
             }));
  }
  for (const Kind& kind : kKinds) {
    const MemoryFile file;
    PrintRow(std::string(kind.name) + ", the kernel's", InOwnProcess([&] {
               if (kind.needs_start_up) PlugInFor(kind);
               memory_path = file.path();
               return Measure(kind, options);
             }));
  }
}

}  // namespace bench
