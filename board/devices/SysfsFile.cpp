#include "devices/SysfsFile.h"

#include <errno.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "devices/FilePosition.h"
#include "devices/Outcome.h"

namespace board {
namespace {

constexpr std::size_t kPageBytes = 4096;

class SysfsFile : public OpenFile {
 public:
  SysfsFile(SysfsAttribute attribute, bool readable, bool writable,
            std::shared_ptr<void> keep_alive)
      : attribute_(std::move(attribute)),
        readable_(readable),
        writable_(writable),
        keep_alive_(std::move(keep_alive)) {}

  ssize_t Read(void* buffer, std::size_t size) override {
    return position_.Advance(ReadAt(buffer, size, position_.Get()));
  }

  // A read at the start asks the driver; what follows is the rest of that text.
  ssize_t ReadAt(void* buffer, std::size_t size, off_t offset) override {
    if (!readable_) return -EBADF;
    const std::lock_guard lock(mutex_);
    if (offset == 0 || !text_) {
      text_ = attribute_.show();
      RecordRead(text_);
      if (!text_) return -ENODEV;
    }
    const std::size_t start = std::min(static_cast<std::size_t>(offset), text_->size());
    const std::size_t count = std::min(size, text_->size() - start);
    std::memcpy(buffer, text_->data() + start, count);
    return static_cast<ssize_t>(count);
  }

  ssize_t Write(const void* buffer, std::size_t size) override {
    return position_.Advance(WriteAt(buffer, size, 0));
  }

  ssize_t WriteAt(const void* buffer, std::size_t size, off_t) override {
    if (!writable_) return -EBADF;
    if (size == 0) return 0;
    const std::lock_guard lock(mutex_);
    const std::string_view whole(static_cast<const char*>(buffer), std::min(size, kPageBytes));
    const std::string_view text = whole.substr(0, whole.find('\0'));
    const int result = attribute_.store(text);
    RecordAs(attribute_.device, [&] {
      return "write " + attribute_.label + ' ' + std::string(WithoutLineEnd(text)) +
             Outcome(result);
    });
    if (result < 0) return result;
    return static_cast<ssize_t>(whole.size());
  }

  // stat shows the same size.
  off_t Seek(off_t offset, int whence) override {
    return position_.Seek(offset, whence, static_cast<off_t>(kPageBytes));
  }

 private:
  void RecordRead(const std::optional<std::string>& text) const {
    RecordAs(attribute_.device, [&] {
      const std::string label = "read " + attribute_.label;
      return text ? label + " = " + std::string(WithoutLineEnd(*text)) : label + Outcome(-ENODEV);
    });
  }

  const SysfsAttribute attribute_;
  const bool readable_;
  const bool writable_;
  const std::shared_ptr<void> keep_alive_;
  std::mutex mutex_;
  std::optional<std::string> text_;
  FilePosition position_;
};

}  // namespace

OpenResult OpenSysfs(SysfsAttribute attribute, int flags, std::shared_ptr<void> keep_alive) {
  const int mode = flags & O_ACCMODE;
  const bool reads = mode != O_WRONLY;
  const bool writes = mode != O_RDONLY;
  if ((reads && !attribute.show) || (writes && !attribute.store)) return {nullptr, EACCES};
  return {std::make_shared<SysfsFile>(std::move(attribute), reads, writes, std::move(keep_alive)),
          0};
}

std::optional<long long> ParseNumber(std::string_view text) {
  const std::string digits(WithoutLineEnd(text));
  const std::size_t sign = !digits.empty() && (digits[0] == '-' || digits[0] == '+') ? 1 : 0;
  // strtoll would also skip leading blanks.
  if (digits.size() == sign || digits[sign] < '0' || digits[sign] > '9') return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(digits.c_str(), &end, 0);
  if (errno != 0 || *end != '\0') return std::nullopt;
  return value;
}

std::string_view WithoutLineEnd(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

}  // namespace board
