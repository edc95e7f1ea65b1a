#include "devices/Uio.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include "Caller.h"
#include "Doorbell.h"
#include "devices/Outcome.h"
#include "memory/Shared.h"

namespace board {

class Uio::Interrupt {
 public:
  Interrupt(BoardMemory& memory, unsigned number)
      : name("uio" + std::to_string(number)),
        line_(memory),
        bell_(memory.Place<Bell>().bell),
        shared_(memory.IsShared()) {}

  void Raise() {
    {
      const auto line = line_.Lock();
      ++line->raised;
      if (!line->enabled) {
        line->pending = true;
        return;
      }
      line->Deliver();
    }
    Tell();
    bell_.Ring();
  }

  void Enable(bool enable) {
    {
      const auto line = line_.Lock();
      line->enabled = enable;
      if (!line->enabled || !line->pending) return;
      line->pending = false;
      line->Deliver();
    }
    Tell();
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

  void Unplug() {
    {
      const std::lock_guard lock(mutex_);
      gone_ = true;
      signs_.Update(true);
    }
    bell_.Ring();
  }

  unsigned Raised() const { return line_.Lock()->raised; }

  std::uint32_t Count() const { return line_.Lock()->count; }

  // Returns the count for a read, and marks it as seen.
  std::uint32_t Take(std::atomic<std::uint32_t>& seen, PollSign& sign) {
    const std::lock_guard lock(mutex_);
    TellLocked();
    seen = told_;
    signs_.Update(sign, gone_);
    return seen;
  }

  // POLLIN, POLLERR and so on, as poll reports them.
  short Ready(const std::atomic<std::uint32_t>& seen, PollSign& sign) {
    const std::lock_guard lock(mutex_);
    if (gone_) return signs_.Watch(sign, POLLERR | POLLHUP);
    if (shared_) ListenToOthers();
    TellLocked();
    return signs_.Watch(sign, told_ != seen ? POLLIN | POLLRDNORM : 0);
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
  struct Line {
    void Deliver() {
      ++count;
      enabled = false;
    }

    bool enabled = true;
    bool pending = false;
    std::uint32_t count = 0;  // delivered to the driver's handler
    unsigned raised = 0;
  };
  struct Bell {
    Doorbell bell{Doorbell::Reach::kBoard};
  };

  void Tell() {
    const std::lock_guard lock(mutex_);
    TellLocked();
  }

  void TellLocked() {
    const std::uint32_t count = Count();
    if (count == told_) return;
    told_ = count;
    signs_.Update(true);
  }

  // Interrupts may be raised in another process, but the signs are this one's.
  void ListenToOthers() {
    if (listener_.exchange(getpid()) == getpid()) return;
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, Listen, this) == 0) pthread_detach(thread);
  }

  // The board of a thread that never ends is the shared one, which stays until the process ends.
  static void* Listen(void* self) {
    auto* const interrupt = static_cast<Interrupt*>(self);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    for (;;) {
      const std::uint32_t rings = interrupt->bell_.Count();
      EnterBoard(false);
      interrupt->Tell();
      LeaveBoard();
      interrupt->bell_.Wait(rings);
    }
  }

  Shared<Line> line_;
  Doorbell& bell_;
  const bool shared_;
  std::atomic<pid_t> listener_{0};  // the process that has the thread
  std::mutex mutex_;                // of the signs
  std::uint32_t told_ = 0;          // the count that the signs show
  std::atomic<bool> gone_{false};
  PollSigns signs_;
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

Uio::Uio(BoardMemory& memory, unsigned number)
    : interrupt_(std::make_shared<Interrupt>(memory, number)) {}

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
