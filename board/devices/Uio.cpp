#include "devices/Uio.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include "Doorbell.h"
#include "devices/Outcome.h"

namespace board {

class Uio::Interrupt {
 public:
  explicit Interrupt(unsigned number) : name("uio" + std::to_string(number)) {}

  void Raise() {
    {
      const std::lock_guard lock(mutex_);
      ++raised_;
      if (!enabled_) {
        pending_ = true;
        return;
      }
      Deliver();
    }
    bell_.Ring();
  }

  void Add(PollSign& sign) {
    const std::lock_guard lock(mutex_);
    signs_.Add(sign);
  }

  void Remove(PollSign& sign) {
    const std::lock_guard lock(mutex_);
    signs_.Remove(sign);
  }

  void SetPoll(bool implemented) {
    const std::lock_guard lock(mutex_);
    signs_.SetPoll(implemented);
  }

  void Enable(bool enable) {
    {
      const std::lock_guard lock(mutex_);
      enabled_ = enable;
      if (!enabled_ || !pending_) return;
      pending_ = false;
      Deliver();
    }
    bell_.Ring();
  }

  void Unplug() {
    {
      const std::lock_guard lock(mutex_);
      gone_ = true;
      signs_.Update(true);
    }
    bell_.Ring();
  }

  unsigned Raised() const {
    const std::lock_guard lock(mutex_);
    return raised_;
  }

  std::uint32_t Count() const {
    const std::lock_guard lock(mutex_);
    return count_;
  }

  // Returns the count for a read, and marks it as seen.
  std::uint32_t Take(std::atomic<std::uint32_t>& seen, PollSign& sign) {
    const std::lock_guard lock(mutex_);
    seen = count_;
    signs_.Update(sign, gone_);
    return count_;
  }

  // POLLIN, POLLERR and so on, as poll reports them.
  short Ready(const std::atomic<std::uint32_t>& seen, PollSign& sign) {
    const std::lock_guard lock(mutex_);
    if (gone_) return signs_.Watch(sign, POLLERR | POLLHUP);
    return signs_.Watch(sign, count_ != seen ? POLLIN | POLLRDNORM : 0);
  }

  // Waits until the count differs from `last`. Returns 0 or the negative errno. The thread may end
  // in this call.
  int WaitForOther(std::uint32_t last, bool nonblocking) {
    for (;;) {
      const std::uint32_t rings = bell_.Count();
      if (gone_) return -ENODEV;
      if (Count() != last) return 0;
      if (nonblocking) return -EAGAIN;
      if (!bell_.Wait(rings)) return -EINTR;
    }
  }

  const std::string name;

 private:
  void Deliver() {
    ++count_;
    enabled_ = false;
    signs_.Update(true);
  }

  mutable std::mutex mutex_;
  bool enabled_ = true;
  bool pending_ = false;
  std::uint32_t count_ = 0;  // delivered to the driver's handler
  unsigned raised_ = 0;
  std::atomic<bool> gone_{false};
  PollSigns signs_;
  Doorbell bell_;
};

class Uio::File : public OpenFile {
 public:
  File(std::shared_ptr<Interrupt> interrupt, OpenToken token)
      : interrupt_(std::move(interrupt)), token_(std::move(token)), seen_(interrupt_->Count()) {
    interrupt_->Add(sign_);
  }
  ~File() override { interrupt_->Remove(sign_); }

  ssize_t Read(void* buffer, std::size_t size) override {
    if (size != sizeof(std::uint32_t)) return -EINVAL;
    if (const int error = interrupt_->WaitForOther(seen_, Nonblocking()); error != 0) return error;
    const std::uint32_t count = interrupt_->Take(seen_, sign_);
    std::memcpy(buffer, &count, sizeof(count));
    RecordAs(interrupt_->name, [=] { return "read = " + std::to_string(count); });
    return sizeof(count);
  }

  ssize_t Write(const void* buffer, std::size_t size) override {
    if (size != sizeof(std::int32_t)) return -EINVAL;
    std::int32_t enable = 0;
    std::memcpy(&enable, buffer, sizeof(enable));
    RecordAs(interrupt_->name, [=] { return "write " + std::to_string(enable); });
    interrupt_->Enable(enable != 0);
    return sizeof(enable);
  }

  // The driver has no positions, and says so by staying where it is.
  off_t Seek(off_t, int) override { return 0; }

  short Ready(short events) override {
    const short now = interrupt_->Ready(seen_, sign_);
    return static_cast<short>(now & (events | POLLERR | POLLHUP));
  }

  PollSign* Sign() override { return &sign_; }

 private:
  const std::shared_ptr<Interrupt> interrupt_;
  const OpenToken token_;
  std::atomic<std::uint32_t> seen_;  // the count that the last read returned
  PollSign sign_;
};

Uio::Uio(unsigned number) : interrupt_(std::make_shared<Interrupt>(number)) {}

void Uio::SetPoll(bool implemented) { interrupt_->SetPoll(implemented); }

void Uio::Unplug() { interrupt_->Unplug(); }

void Uio::Raise() { interrupt_->Raise(); }

unsigned Uio::Raised() const { return interrupt_->Raised(); }

unsigned Uio::Delivered() const { return interrupt_->Count(); }

std::string Uio::Name() const { return interrupt_->name; }

bool Uio::Claims(const std::string& path) const { return path == "/dev/" + interrupt_->name; }

OpenResult Uio::Open(const std::string&, int) {
  return {std::make_shared<File>(interrupt_, CountOpen()), 0};
}

}  // namespace board
