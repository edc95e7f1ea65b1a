#pragma once

// Start-up of an IMX252 product ends with a self-test: the sensor is triggered, and an image must
// arrive within 10 ms. Here exactly one arrives, and the pause lasts until it has been handled,
// however slow the machine is. Include it in only one file of a program: it replaces the board's
// clock_nanosleep.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <string>

#include "support/Waiting.h"
#include "tessaline/board.h"

namespace tessaline_test {

class SelfTestImage {
 public:
  // Create it before start-up, with an image handler registered that calls Handled().
  explicit SelfTestImage(const std::string& model) : needed_(model.starts_with("K37")) {
    if (!needed_) return;
    tessaline_board_frame_fault(0, TESSALINE_BOARD_FRAME_LOST, 1, 0);
    awaited_ = true;
  }
  ~SelfTestImage() {
    if (!needed_) return;
    awaited_ = false;
    tessaline_board_clear_faults();
  }
  SelfTestImage(const SelfTestImage&) = delete;
  SelfTestImage& operator=(const SelfTestImage&) = delete;

  // Called at the end of the handler.
  static void Handled() { handled_ = true; }

  static void AfterPause(const timespec& pause) {
    constexpr long kPauseNs = 10'000'000;
    if (!awaited_ || pause.tv_sec != 0 || pause.tv_nsec != kPauseNs) return;
    EXPECT_TRUE(Eventually([] { return handled_.load(); })) << "no image for the self-test";
  }

 private:
  static inline std::atomic<bool> awaited_ = false;
  static inline std::atomic<bool> handled_ = false;
  const bool needed_;
};

}  // namespace tessaline_test

#pragma GCC visibility push(default)
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                               timespec* remaining) {
  static const auto next = reinterpret_cast<int (*)(clockid_t, int, const timespec*, timespec*)>(
      dlsym(RTLD_NEXT, "clock_nanosleep"));
  const int result = next(clock, flags, request, remaining);
  if ((flags & TIMER_ABSTIME) == 0) tessaline_test::SelfTestImage::AfterPause(*request);
  return result;
}
#pragma GCC visibility pop
