#include "devices/Watchdog.h"

#include <errno.h>
#include <linux/watchdog.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "Clock.h"
#include "devices/Outcome.h"
#include "devices/SysfsFile.h"

namespace board {
namespace {

constexpr std::string_view kName = "watchdog";
constexpr std::string_view kIdentity = "cdns_wdt watchdog";

constexpr int kDefaultTimeout = 10;  // seconds
constexpr int kMaxTimeout = 516;     // seconds; the limit of the hardware's counter
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
  bool Occupy() {
    const std::lock_guard lock(mutex_);
    if (occupied_) return false;
    occupied_ = true;
    may_stop_ = false;
    Start();
    return true;
  }

  // If the last write did not contain the magic letter, the timer continues. Returns whether it was
  // stopped.
  bool Vacate() {
    const std::lock_guard lock(mutex_);
    occupied_ = false;
    if (may_stop_) Stop();
    return may_stop_;
  }

  void Feed() {
    const std::lock_guard lock(mutex_);
    if (deadline_ns_) Start();
  }

  void Write(std::string_view text) {
    const std::lock_guard lock(mutex_);
    may_stop_ = text.find(kMagicClose) != std::string_view::npos;
    if (deadline_ns_) Start();
  }

  int SetTimeout(int seconds) {
    const std::lock_guard lock(mutex_);
    if (seconds < 1 || seconds > kMaxTimeout) return -EINVAL;
    timeout_ = seconds;
    if (deadline_ns_) Start();
    return 0;
  }

  int Timeout() const {
    const std::lock_guard lock(mutex_);
    return timeout_;
  }

  int Switch(int options) {
    const std::lock_guard lock(mutex_);
    if ((options & (WDIOS_DISABLECARD | WDIOS_ENABLECARD)) == 0) return -EINVAL;
    if ((options & WDIOS_DISABLECARD) != 0) Stop();
    if ((options & WDIOS_ENABLECARD) != 0) Start();
    return 0;
  }

  double Left() const {
    const std::lock_guard lock(mutex_);
    if (!deadline_ns_) return kNotArmed;
    const double left = static_cast<double>(*deadline_ns_ - NowNs()) / 1e9;
    // A timer that bit long ago must not look like an unarmed timer.
    return std::max(left, kNotArmed + 1);
  }

 private:
  bool Bitten() const { return deadline_ns_ && NowNs() > *deadline_ns_; }

  void Start() {
    if (Bitten()) return;
    deadline_ns_ = NowNs() + timeout_ * kNsPerSecond;
  }

  void Stop() {
    if (!Bitten()) deadline_ns_.reset();
  }

  mutable std::mutex mutex_;
  bool occupied_ = false;
  bool may_stop_ = false;
  int timeout_ = kDefaultTimeout;
  std::optional<std::int64_t> deadline_ns_;  // of an armed timer
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
        return Get("WDIOC_GETSTATUS", Put(argument, 0));
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

Watchdog::Watchdog() : timer_(std::make_shared<Timer>()) {}

double Watchdog::Left() const { return timer_->Left(); }

int Watchdog::Timeout() const { return timer_->Timeout(); }

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
