// Reading and writing at a position, in parts, and from file to file.

#include <errno.h>
#include <sys/sendfile.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>
#include <span>

#include "Interpose.h"
#include "RealCalls.h"

namespace board {
namespace {

using Offset = std::optional<off_t>;  // nothing: the file's own position

ssize_t ReadPart(OpenFile& file, void* buffer, std::size_t size, Offset offset) {
  return offset ? file.ReadAt(buffer, size, *offset) : file.Read(buffer, size);
}

ssize_t WritePart(OpenFile& file, const void* buffer, std::size_t size, Offset offset) {
  return offset ? file.WriteAt(buffer, size, *offset) : file.Write(buffer, size);
}

off_t LseekAny(int fd, off_t offset, int whence) {
  if (!IsBoardDescriptor(fd)) return real::Lseek(fd, offset, whence);
  return AsSystemCall(
      OnFile(fd, false, "lseek", [=](OpenFile& file, bool) { return file.Seek(offset, whence); }));
}

ssize_t PreadAny(int fd, void* buffer, std::size_t size, off_t offset) {
  if (!IsBoardDescriptor(fd)) return real::Pread(fd, buffer, size, offset);
  if (offset < 0) return AsSystemCall<ssize_t>(-EINVAL);
  return AsSystemCall(OnFile(fd, true, "read", [=](OpenFile& file, bool cut_short) {
    return file.ReadAt(buffer, cut_short ? size / 2 : size, offset);
  }));
}

ssize_t PwriteAny(int fd, const void* buffer, std::size_t size, off_t offset) {
  if (!IsBoardDescriptor(fd)) return real::Pwrite(fd, buffer, size, offset);
  if (offset < 0) return AsSystemCall<ssize_t>(-EINVAL);
  return AsSystemCall(OnFile(fd, true, "write", [=](OpenFile& file, bool cut_short) {
    return file.WriteAt(buffer, cut_short ? size / 2 : size, offset);
  }));
}

// One call of the driver for each part, up to the first that is not done in full.
template <typename Part>
ssize_t InParts(std::span<const iovec> parts, Offset offset, Part part) {
  ssize_t total = 0;
  for (const iovec& each : parts) {
    if (each.iov_len == 0) continue;
    const ssize_t done = part(each, offset ? Offset(*offset + total) : offset);
    if (done < 0) return total > 0 ? total : done;
    total += done;
    if (done < static_cast<ssize_t>(each.iov_len)) break;
  }
  return total;
}

// The kernel's checks of a list of parts. Returns 0 or the negative errno.
ssize_t ListError(const iovec* parts, int count, off_t offset) {
  if (count < 0 || count > IOV_MAX || offset < -1) return -EINVAL;
  return parts == nullptr && count > 0 ? -EFAULT : 0;
}

ssize_t ReadParts(int fd, const iovec* parts, int count, off_t offset) {
  if (const ssize_t error = ListError(parts, count, offset); error != 0) return AsSystemCall(error);
  return AsSystemCall(OnFile(fd, true, "read", [=](OpenFile& file, bool) {
    return InParts({parts, static_cast<std::size_t>(count)}, offset < 0 ? Offset() : Offset(offset),
                   [&](const iovec& part, Offset at) {
                     return ReadPart(file, part.iov_base, part.iov_len, at);
                   });
  }));
}

ssize_t WriteParts(int fd, const iovec* parts, int count, off_t offset) {
  if (const ssize_t error = ListError(parts, count, offset); error != 0) return AsSystemCall(error);
  return AsSystemCall(OnFile(fd, true, "write", [=](OpenFile& file, bool) {
    return InParts({parts, static_cast<std::size_t>(count)}, offset < 0 ? Offset() : Offset(offset),
                   [&](const iovec& part, Offset at) {
                     return WritePart(file, part.iov_base, part.iov_len, at);
                   });
  }));
}

ssize_t ReadvAny(int fd, const iovec* parts, int count, off_t offset, int flags) {
  if (!IsBoardDescriptor(fd)) return real::Preadv(fd, parts, count, offset, flags);
  return ReadParts(fd, parts, count, offset);
}

ssize_t WritevAny(int fd, const iovec* parts, int count, off_t offset, int flags) {
  if (!IsBoardDescriptor(fd)) return real::Pwritev(fd, parts, count, offset, flags);
  return WriteParts(fd, parts, count, offset);
}

// With an offset of -1 the kernel refuses what the calls with flags take for the position.
bool IsRefused(off_t offset) { return offset < 0; }

// The kernel cannot copy between these files and others. Programs then read and write.
bool CannotCopy(int in, int out) { return IsBoardDescriptor(in) || IsBoardDescriptor(out); }

}  // namespace
}  // namespace board

#pragma GCC visibility push(default)
extern "C" {

off_t lseek(int fd, off_t offset, int whence) { return board::LseekAny(fd, offset, whence); }
off64_t lseek64(int fd, off64_t offset, int whence) { return board::LseekAny(fd, offset, whence); }

ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
  return board::PreadAny(fd, buffer, size, offset);
}
ssize_t pread64(int fd, void* buffer, size_t size, off64_t offset) {
  return board::PreadAny(fd, buffer, size, offset);
}
ssize_t __pread_chk(int fd, void* buffer, size_t size, off_t offset, size_t room) {
  if (size > room) abort();
  return board::PreadAny(fd, buffer, size, offset);
}
ssize_t __pread64_chk(int fd, void* buffer, size_t size, off64_t offset, size_t room) {
  if (size > room) abort();
  return board::PreadAny(fd, buffer, size, offset);
}
ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
  return board::PwriteAny(fd, buffer, size, offset);
}
ssize_t pwrite64(int fd, const void* buffer, size_t size, off64_t offset) {
  return board::PwriteAny(fd, buffer, size, offset);
}

ssize_t readv(int fd, const iovec* parts, int count) {
  return board::ReadvAny(fd, parts, count, -1, 0);
}
ssize_t writev(int fd, const iovec* parts, int count) {
  return board::WritevAny(fd, parts, count, -1, 0);
}
ssize_t preadv(int fd, const iovec* parts, int count, off_t offset) {
  if (board::IsRefused(offset)) return board::AsSystemCall<ssize_t>(-EINVAL);
  return board::ReadvAny(fd, parts, count, offset, 0);
}
ssize_t preadv64(int fd, const iovec* parts, int count, off64_t offset) {
  return preadv(fd, parts, count, offset);
}
ssize_t pwritev(int fd, const iovec* parts, int count, off_t offset) {
  if (board::IsRefused(offset)) return board::AsSystemCall<ssize_t>(-EINVAL);
  return board::WritevAny(fd, parts, count, offset, 0);
}
ssize_t pwritev64(int fd, const iovec* parts, int count, off64_t offset) {
  return pwritev(fd, parts, count, offset);
}
ssize_t preadv2(int fd, const iovec* parts, int count, off_t offset, int flags) {
  return board::ReadvAny(fd, parts, count, offset, flags);
}
ssize_t preadv64v2(int fd, const iovec* parts, int count, off64_t offset, int flags) {
  return board::ReadvAny(fd, parts, count, offset, flags);
}
ssize_t pwritev2(int fd, const iovec* parts, int count, off_t offset, int flags) {
  return board::WritevAny(fd, parts, count, offset, flags);
}
ssize_t pwritev64v2(int fd, const iovec* parts, int count, off64_t offset, int flags) {
  return board::WritevAny(fd, parts, count, offset, flags);
}

ssize_t sendfile(int out, int in, off_t* offset, size_t size) {
  if (board::CannotCopy(in, out)) return board::AsSystemCall<ssize_t>(-EINVAL);
  return board::real::Sendfile(out, in, offset, size);
}
ssize_t sendfile64(int out, int in, off64_t* offset, size_t size) {
  return sendfile(out, in, offset, size);
}
ssize_t splice(int in, off64_t* in_offset, int out, off64_t* out_offset, size_t size,
               unsigned flags) {
  if (board::CannotCopy(in, out)) return board::AsSystemCall<ssize_t>(-EINVAL);
  return board::real::Splice(in, in_offset, out, out_offset, size, flags);
}
ssize_t copy_file_range(int in, off64_t* in_offset, int out, off64_t* out_offset, size_t size,
                        unsigned flags) {
  if (board::CannotCopy(in, out)) return board::AsSystemCall<ssize_t>(-EINVAL);
  return board::real::CopyFileRange(in, in_offset, out, out_offset, size, flags);
}

}  // extern "C"
#pragma GCC visibility pop
