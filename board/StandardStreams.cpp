// The C library reads and writes its standard streams by internal calls that cannot be interposed,
// and a shell's "echo 1 > /sys/class/gpio/export" ends there. So such a stream is replaced by a
// custom one, once, that decides at every call what its descriptor stands for: the shell takes its
// descriptor back after the command.

#include "StandardStreams.h"

#include <stdio.h>
#include <stdio_ext.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

int DescriptorOf(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t ReadStream(void* cookie, char* buffer, std::size_t size) {
  const int fd = DescriptorOf(cookie);
  if (!IsBoardDescriptor(fd)) return real::Read(fd, buffer, size);
  return AsSystemCall(OnFile(fd, false, "read", [=](OpenFile& file, bool cut_short) {
    return file.Read(buffer, cut_short ? size / 2 : size);
  }));
}

ssize_t WriteStream(void* cookie, const char* buffer, std::size_t size) {
  const int fd = DescriptorOf(cookie);
  const ssize_t written =
      IsBoardDescriptor(fd)
          ? AsSystemCall(OnFile(fd, false, "write",
                                [=](OpenFile& file, bool cut_short) {
                                  return file.Write(buffer, cut_short ? size / 2 : size);
                                }))
          : real::Write(fd, buffer, size);
  return std::max<ssize_t>(0, written);
}

int SeekStream(void* cookie, off64_t* offset, int whence) {
  const off64_t position = syscall(SYS_lseek, DescriptorOf(cookie), *offset, whence);
  if (position < 0) return -1;
  *offset = position;
  return 0;
}

int CloseStream(void* cookie) { return close(DescriptorOf(cookie)); }

struct Standard {
  FILE** name;
  const char* mode;
  bool carried;
};
constinit std::array<Standard, 3> standards{
    {{&stdin, "r", false}, {&stdout, "w", false}, {&stderr, "w", false}}};

int BufferingOf(FILE* stream) {
  if (stream == stderr) return _IONBF;
  return __flbf(stream) != 0 ? _IOLBF : _IOFBF;
}

}  // namespace

void CarryStandardStream(int fd) {
  if (fd < 0 || fd >= static_cast<int>(standards.size())) return;
  Standard& standard = standards[static_cast<std::size_t>(fd)];
  if (standard.carried) return;
  FILE* const stream = fopencookie(reinterpret_cast<void*>(std::intptr_t{fd}), standard.mode,
                                   {ReadStream, WriteStream, SeekStream, CloseStream});
  if (stream == nullptr) return;
  stream->_fileno = fd;  // what fileno() returns
  setvbuf(stream, nullptr, BufferingOf(*standard.name), BUFSIZ);
  *standard.name = stream;
  standard.carried = true;
}

}  // namespace board
