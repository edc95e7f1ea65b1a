// The functions of the C library that the board stands in front of. Each passes a
// call that is none of the board's straight on; a board call is made with the
// caller's cancellation held back (see Doorbell.h), so these outer functions keep
// no object with a destructor.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "Board.h"
#include "Clock.h"
#include "Doorbell.h"
#include "Faults.h"
#include "FileTable.h"
#include "RealCalls.h"
#include "Transcript.h"
#include "devices/FpgaWindow.h"

namespace board {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kPollSliceNs = 500'000;

// A negative errno becomes what the system call would return.
template <typename Result>
Result AsSystemCall(Result result) {
  if (result >= 0) return result;
  errno = static_cast<int>(-result);
  return -1;
}

template <typename Call>
__attribute__((noinline)) auto Run(Call& call) {
  return call();
}

// Out of line, so that what the call destroys stays out of this frame.
template <typename Call>
auto InBoard(bool cancellation_point, Call call) {
  EnterBoard(cancellation_point);
  const auto result = Run(call);
  LeaveBoard();
  return result;
}

// The descriptor, or -errno; kNotOurs when the path is no device of the board.
constexpr int kNotOurs = 1 << 30;

int OpenDevice(const char* path, int flags) {
  const std::shared_ptr<Board> board = Board::Current();
  if (board == nullptr || path == nullptr) return kNotOurs;
  Device* device = board->Find(path);
  if (device == nullptr) return kNotOurs;
  const std::string name = device->Name();
  if (const int error = PlantedFault(name, "open").error; error != 0) return -error;
  auto [file, error] = device->Open(path, flags);
  if (file == nullptr) {
    Record(name, "open " + std::string(path) + " failed: " + ErrnoName(error));
    return -error;
  }
  return Install({board, std::move(file), name}, flags);
}

int OpenAny(int directory, const char* path, int flags, mode_t mode) {
  if (Board::PluggedIn()) {
    const int fd = InBoard(true, [=] { return OpenDevice(path, flags); });
    if (fd != kNotOurs) return AsSystemCall(fd);
  }
  return real::Open(directory, path, flags, mode);
}

// Runs a call on the file behind a board descriptor. It is told whether it is to be
// cut short.
template <typename Call>
std::int64_t OnFile(int fd, bool cancellation_point, const char* operation, Call call) {
  return InBoard(cancellation_point, [=]() -> std::int64_t {
    const Entry entry = Lookup(fd);
    if (entry.file == nullptr) return -EBADF;
    if (entry.board != Board::Current()) return -ENODEV;
    const CallFate fate = PlantedFault(entry.device, operation);
    if (fate.error != 0) return -fate.error;
    return call(*entry.file, fate.cut_short);
  });
}

ssize_t ReadAny(int fd, void* buffer, std::size_t size) {
  if (!IsBoardDescriptor(fd)) return real::Read(fd, buffer, size);
  return AsSystemCall(OnFile(fd, true, "read", [=](OpenFile& file, bool cut_short) {
    return file.Read(buffer, cut_short ? size / 2 : size);
  }));
}

ssize_t WriteAny(int fd, const void* buffer, std::size_t size) {
  if (!IsBoardDescriptor(fd)) return real::Write(fd, buffer, size);
  return AsSystemCall(OnFile(fd, true, "write", [=](OpenFile& file, bool cut_short) {
    return file.Write(buffer, cut_short ? size / 2 : size);
  }));
}

std::int64_t IoctlOnFile(int fd, unsigned long request, void* argument) {
  return InBoard(false, [=]() -> std::int64_t {
    const std::string name = IoctlName(request);
    return OnFile(fd, false, name.c_str(), [=](OpenFile& file, bool cut_short) {
      return cut_short ? IoctlCutShort(file, request, argument) : file.Ioctl(request, argument);
    });
  });
}

void* MmapAny(void* hint, std::size_t length, int protection, int flags, int fd, off_t offset) {
  if ((flags & MAP_ANONYMOUS) != 0 || !IsBoardDescriptor(fd)) {
    return real::Mmap(hint, length, protection, flags, fd, offset);
  }
  const std::int64_t address = OnFile(fd, false, "mmap", [=](OpenFile& file, bool) {
    return file.Mmap(hint, length, protection, flags, offset);
  });
  if (address < 0 && address > -4096) {
    errno = static_cast<int>(-address);
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(address);
}

// One look at all descriptors: the board's own and, without waiting, the others.
int PollOnce(pollfd* fds, nfds_t count) {
  std::vector<pollfd> others;
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    fds[i].revents = 0;
    if (!IsBoardDescriptor(fds[i].fd)) {
      pollfd other = fds[i];
      real::Poll(&other, 1, 0);
      fds[i].revents = other.revents;
    } else if (const Entry entry = Lookup(fds[i].fd); entry.board != Board::Current()) {
      fds[i].revents = POLLERR | POLLHUP;
    } else if (entry.file != nullptr) {
      if (const int error = PlantedFault(entry.device, "poll").error; error != 0) return -error;
      fds[i].revents = entry.file->Ready(fds[i].events);
    }
    if (fds[i].revents != 0) ++ready;
  }
  return ready;
}

int PollBoard(pollfd* fds, nfds_t count, int timeout_ms) {
  const std::int64_t deadline = NowNs() + static_cast<std::int64_t>(timeout_ms) * 1'000'000;
  Doorbell pause;
  for (;;) {
    const int ready = PollOnce(fds, count);
    if (ready != 0) return ready;
    if (timeout_ms >= 0 && NowNs() >= deadline) return 0;
    pause.Wait(pause.Count(), kPollSliceNs);
  }
}

int PollAny(pollfd* fds, nfds_t count, int timeout_ms) {
  bool ours = false;
  for (nfds_t i = 0; i < count; ++i) ours = ours || IsBoardDescriptor(fds[i].fd);
  if (!ours) return real::Poll(fds, count, timeout_ms);
  return AsSystemCall(InBoard(true, [=] { return PollBoard(fds, count, timeout_ms); }));
}

// Notes a sleep and returns how much of it is really slept.
std::int64_t ScaledSleep(std::int64_t nanoseconds) {
  return InBoard(true, [=] {
    Record("sleep", std::to_string((nanoseconds + 999) / 1000));
    const auto slept = static_cast<std::int64_t>(static_cast<double>(nanoseconds) * SleepFactor());
    if (slept < nanoseconds) AdvanceNs(nanoseconds - slept);
    return slept;
  });
}

int SleepFor(std::int64_t nanoseconds, timespec* remaining) {
  if (nanoseconds < 0) {
    errno = EINVAL;
    return -1;
  }
  const std::int64_t left = ScaledSleep(nanoseconds);
  // A skipped sleep still lets others run and still is a cancellation point.
  if (left == 0) sched_yield();
  const timespec request{left / kNsPerSecond, left % kNsPerSecond};
  return real::Nanosleep(&request, remaining);
}

std::int64_t Nanoseconds(const timespec& time) {
  if (time.tv_nsec < 0 || time.tv_nsec >= kNsPerSecond) return -1;
  return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

// What is behind a stream of the C library.
struct Cookie {
  std::shared_ptr<OpenFile> file;
  std::string device;
};

ssize_t CookieRead(void* cookie, char* buffer, std::size_t size) {
  const auto& stream = *static_cast<Cookie*>(cookie);
  const CallFate fate = PlantedFault(stream.device, "read");
  if (fate.error != 0) return AsSystemCall<ssize_t>(-fate.error);
  return AsSystemCall(stream.file->Read(buffer, fate.cut_short ? size / 2 : size));
}

ssize_t CookieWrite(void* cookie, const char* buffer, std::size_t size) {
  const auto& stream = *static_cast<Cookie*>(cookie);
  const CallFate fate = PlantedFault(stream.device, "write");
  if (fate.error != 0) return 0;
  return std::max<ssize_t>(0, stream.file->Write(buffer, fate.cut_short ? size / 2 : size));
}

int CookieClose(void* cookie) {
  delete static_cast<Cookie*>(cookie);
  return 0;
}

FILE* OpenStream(const char* path, const char* mode, bool* ours) {
  const std::shared_ptr<Board> board = Board::Current();
  Device* device = board == nullptr || path == nullptr ? nullptr : board->Find(path);
  *ours = device != nullptr;
  if (device == nullptr) return nullptr;
  const bool update = mode[0] != '\0' && std::string(mode).find('+') != std::string::npos;
  const int flags = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
  int error = PlantedFault(device->Name(), "open").error;
  std::shared_ptr<OpenFile> file;
  if (error == 0) std::tie(file, error) = device->Open(path, flags);
  if (file == nullptr) {
    errno = error;
    return nullptr;
  }
  auto* cookie = new Cookie{std::move(file), device->Name()};
  return fopencookie(cookie, mode, {CookieRead, CookieWrite, nullptr, CookieClose});
}

FILE* FopenAny(const char* path, const char* mode) {
  if (Board::PluggedIn()) {
    bool ours = false;
    FILE* stream = InBoard(true, [&ours, path, mode] { return OpenStream(path, mode, &ours); });
    if (ours) return stream;
  }
  return real::Fopen(path, mode);
}

mode_t ModeArgument(int flags, va_list arguments) {
  const bool given = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
  return given ? va_arg(arguments, mode_t) : 0;
}

}  // namespace
}  // namespace board

// The C library declares some of these with attributes (nonnull, throw()) that a
// definition may not repeat on every compiler version; the names are what counts.
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = board::ModeArgument(flags, arguments);
  va_end(arguments);
  return board::OpenAny(directory, path, flags, mode);
}

// What a program built with FORTIFY calls.
int __open_2(const char* path, int flags) { return board::OpenAny(AT_FDCWD, path, flags, 0); }
int __open64_2(const char* path, int flags) { return board::OpenAny(AT_FDCWD, path, flags, 0); }

FILE* fopen(const char* path, const char* mode) { return board::FopenAny(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return board::FopenAny(path, mode); }

ssize_t read(int fd, void* buffer, size_t size) { return board::ReadAny(fd, buffer, size); }

ssize_t __read_chk(int fd, void* buffer, size_t size, size_t room) {
  if (size > room) abort();
  return board::ReadAny(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) { return board::WriteAny(fd, buffer, size); }

int ioctl(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!board::IsBoardDescriptor(fd)) return board::real::Ioctl(fd, request, argument);
  return static_cast<int>(board::AsSystemCall(board::IoctlOnFile(fd, request, argument)));
}

void* mmap(void* hint, size_t length, int protection, int flags, int fd, off_t offset) {
  return board::MmapAny(hint, length, protection, flags, fd, offset);
}

void* mmap64(void* hint, size_t length, int protection, int flags, int fd, off64_t offset) {
  return board::MmapAny(hint, length, protection, flags, fd, offset);
}

int munmap(void* address, size_t length) {
  if (board::IsFpgaWindow(address)) {
    return board::InBoard(false, [=] { return board::CloseFpgaWindow(address); });
  }
  return board::real::Munmap(address, length);
}

int close(int fd) {
  if (!board::IsBoardDescriptor(fd)) return board::real::Close(fd);
  return board::InBoard(true, [=] {
    board::Release(fd);
    return 0;
  });
}

int poll(pollfd* fds, nfds_t count, int timeout_ms) {
  return board::PollAny(fds, count, timeout_ms);
}

int __poll_chk(pollfd* fds, nfds_t count, int timeout_ms, size_t) {
  return board::PollAny(fds, count, timeout_ms);
}

int usleep(useconds_t microseconds) {
  if (!board::Board::PluggedIn()) {
    const timespec request{static_cast<time_t>(microseconds / 1'000'000),
                           static_cast<long>(microseconds % 1'000'000) * 1000};
    return board::real::Nanosleep(&request, nullptr);
  }
  return board::SleepFor(static_cast<std::int64_t>(microseconds) * 1000, nullptr);
}

unsigned sleep(unsigned seconds) {
  timespec remaining{};
  const timespec request{static_cast<time_t>(seconds), 0};
  const int result = board::Board::PluggedIn()
                         ? board::SleepFor(board::Nanoseconds(request), &remaining)
                         : board::real::Nanosleep(&request, &remaining);
  return result == 0 ? 0 : static_cast<unsigned>(remaining.tv_sec);
}

int nanosleep(const timespec* request, timespec* remaining) {
  if (!board::Board::PluggedIn()) return board::real::Nanosleep(request, remaining);
  return board::SleepFor(board::Nanoseconds(*request), remaining);
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* request, timespec* remaining) {
  // An absolute time stays the process's own business.
  if (!board::Board::PluggedIn() || (flags & TIMER_ABSTIME) != 0) {
    return board::real::ClockNanosleep(clock, flags, request, remaining);
  }
  return board::SleepFor(board::Nanoseconds(*request), remaining) == 0 ? 0 : errno;
}

}  // extern "C"
#pragma GCC visibility pop
