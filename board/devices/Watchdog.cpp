#include "devices/Watchdog.h"

#include <errno.h>
#include <linux/watchdog.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "Clock.h"
#include "devices/Outcome.h"
#include "devices/SysfsFile.h"
#include "memory/Seat.h"
#include "memory/Shared.h"

namespace board {
namespace {

constexpr std::string_view kName = "watchdog";
constexpr std::string_view kIdentity = "cdns_wdt watchdog";

constexpr int kDefaultTimeout = 10;  // seconds
constexpr char kMagicClose = 'V';

// Returns an ioctl's result through its argument.
template <typename Value>
int Put(void* argument, Value value) {
  if (argument == nullptr) return -EFAULT;
  std::memcpy(argument, &value, sizeof(value));
  return 0;
}

watchdog_info Info() {
  watchdog_info info{};
  info.options = WDIOF_SETTIMEOUT | WDIOF_KEEPALIVEPING | WDIOF_MAGICCLOSE;
  std::memcpy(info.identity, kIdentity.data(), kIdentity.size());
  return info;
}

}  // namespace

// The counter and the one permitted open file.
class Watchdog::Timer {
 public:
  explicit Timer(BoardMemory& memory) : state_(memory), seat_(memory, Seat::kWatchdog) {}

  bool Occupy() {
    const auto timer = state_.Lock();
    if (occupied_ || !seat_.Take()) return false;
    occupied_ = true;
    timer->may_stop = false;
    timer->Feed();
    return true;
  }

  // If the last write did not contain the magic letter, the timer continues. Returns whether it was
  // stopped.
  bool Vacate() {
    const auto timer = state_.Lock();
    occupied_ = false;
    if (!seat_.Leave()) return false;
    if (timer->may_stop) timer->Stop();
    return std::exchange(timer->may_stop, false);
  }

  void Feed() {
    const auto timer = state_.Lock();
    if (timer->deadline_ns) timer->Feed();
  }

  // What happened since it was asked for last.
  int TakeStatus() {
    const auto timer = state_.Lock();
    const int status =
        (timer->fed ? WDIOF_KEEPALIVEPING : 0) | (timer->may_stop ? WDIOF_MAGICCLOSE : 0);
    timer->fed = false;
    return status;
  }

  void Write(std::string_view text) {
    const auto timer = state_.Lock();
    timer->may_stop = text.find(kMagicClose) != std::string_view::npos;
    if (timer->deadline_ns) timer->Feed();
  }

  int SetTimeout(int seconds) {
    const auto timer = state_.Lock();
    if (seconds < kMinTimeout || seconds > kMaxTimeout) return -EINVAL;
    timer->timeout = seconds;
    if (timer->deadline_ns) timer->Feed();
    return 0;
  }

  int Timeout() const {
    const auto timer = state_.Lock();
    return timer->timeout;
  }

  int Switch(int options) {
    const auto timer = state_.Lock();
    if ((options & (WDIOS_DISABLECARD | WDIOS_ENABLECARD)) == 0) return -EINVAL;
    if ((options & WDIOS_DISABLECARD) != 0) timer->Stop();
    if ((options & WDIOS_ENABLECARD) != 0) timer->Feed();
    return 0;
  }

  double Left() const {
    const auto timer = state_.Lock();
    if (!timer->deadline_ns) return kNotArmed;
    const double left = static_cast<double>(*timer->deadline_ns - NowNs()) / 1e9;
    // A timer that bit long ago must not look like an unarmed timer.
    return std::max(left, kNotArmed + 1);
  }

 private:
  struct State {
    bool Bitten() const { return deadline_ns && NowNs() > *deadline_ns; }

    void Feed() {
      fed = true;
      if (Bitten()) return;
      deadline_ns = NowNs() + timeout * kNsPerSecond;
    }

    void Stop() {
      if (!Bitten()) deadline_ns.reset();
    }

    bool may_stop = false;
    bool fed = false;  // since the status was asked for
    int timeout = kDefaultTimeout;
    std::optional<std::int64_t> deadline_ns;  // of an armed timer
  };
  Shared<State> state_;
  Seat seat_;
  bool occupied_ = false;  // by this process; guarded by the lock of the state
};

class Watchdog::File : public OpenFile {
 public:
  File(std::shared_ptr<Timer> timer, OpenToken token)
      : timer_(std::move(timer)), token_(std::move(token)) {}

  ~File() override {
    const bool stopped = timer_->Vacate();
    RecordAs(kName, [=] { return stopped ? "close, stopped" : "close, runs on"; });
  }

  ssize_t Write(const void* buffer, std::size_t size) override {
    if (size == 0) return 0;
    const std::string_view text(static_cast<const char*>(buffer), size);
    timer_->Write(text);
    RecordAs(kName, [=] { return "write " + std::string(WithoutLineEnd(text)); });
    return static_cast<ssize_t>(size);
  }

  int Ioctl(unsigned long request, void* argument) override {
    switch (request) {
      case WDIOC_GETSUPPORT:
        return Get("WDIOC_GETSUPPORT", Put(argument, Info()));
      case WDIOC_GETSTATUS:
        return Get("WDIOC_GETSTATUS", Put(argument, timer_->TakeStatus()));
      case WDIOC_GETBOOTSTATUS:
        return Get("WDIOC_GETBOOTSTATUS", Put(argument, 0));
      case WDIOC_SETOPTIONS:
        return Set("WDIOC_SETOPTIONS", argument,
                   [this](int value) { return timer_->Switch(value); });
      case WDIOC_KEEPALIVE:
        timer_->Feed();
        return Get("WDIOC_KEEPALIVE", 0);
      case WDIOC_SETTIMEOUT:
        return Set("WDIOC_SETTIMEOUT", argument,
                   [this](int value) { return timer_->SetTimeout(value); });
      case WDIOC_GETTIMEOUT:
        return Get("WDIOC_GETTIMEOUT", Put(argument, timer_->Timeout()));
      case WDIOC_GETTIMELEFT:
        return Get("WDIOC_GETTIMELEFT", Put(argument, WholeSecondsLeft()));
      case WDIOC_SETPRETIMEOUT:
      case WDIOC_GETPRETIMEOUT:
      case WDIOC_GETTEMP:
        return -EOPNOTSUPP;
      default:
        return -ENOTTY;
    }
  }

 private:
  int WholeSecondsLeft() const { return static_cast<int>(std::max(0.0, timer_->Left())); }

  static int Get(const char* name, int result) {
    RecordAs(kName, [=] { return name + Outcome(result); });
    return result;
  }

  template <typename Setter>
  static int Set(const char* name, const void* argument, Setter setter) {
    if (argument == nullptr) return Get(name, -EFAULT);
    int value = 0;
    std::memcpy(&value, argument, sizeof(value));
    const int result = setter(value);
    RecordAs(kName, [=] { return name + (' ' + std::to_string(value)) + Outcome(result); });
    return result;
  }

  const std::shared_ptr<Timer> timer_;
  const OpenToken token_;
};

Watchdog::Watchdog(BoardMemory& memory) : timer_(std::make_shared<Timer>(memory)) {}

double Watchdog::Left() const { return timer_->Left(); }

int Watchdog::Timeout() const { return timer_->Timeout(); }

int Watchdog::TakeStatus() const { return timer_->TakeStatus(); }

std::string Watchdog::Identity() { return std::string(kIdentity); }

std::string Watchdog::Name() const { return std::string(kName); }

bool Watchdog::Claims(const std::string& path) const {
  return path == "/dev/watchdog" || path == "/dev/watchdog0";
}

OpenResult Watchdog::Open(const std::string&, int) {
  if (!timer_->Occupy()) return {nullptr, EBUSY};
  RecordAs(kName, [] { return "open, armed"; });
  return {std::make_shared<File>(timer_, CountOpen()), 0};
}

}  // namespace board
