// A board for the plain capture functions.
#pragma once

#include <gtest/gtest.h>
#include <stddef.h>

#include <string>

#include "support/BoardFixture.h"
#include "support/FrameSource.h"
#include "tessaline/log.h"
#include "tessaline/video.h"

namespace tessaline_test {

inline constexpr const char* kDevice = "/dev/video0";
inline constexpr const char* kNowhere = "/dev/no-such-video";
inline constexpr unsigned kWidth = FrameSource::kWidth;
inline constexpr unsigned kHeight = FrameSource::kHeight + 1;  // a line for the header
inline constexpr unsigned kTag = 0xCAFE;
inline constexpr std::size_t kPage = 4096;

class PlainCapture : public BoardFixture {
 protected:
  PlainCapture() : BoardFixture("K3610") { log_set_quiet(true); }

  static tessaline_video_channel* Channel(unsigned count = 4, unsigned width = kWidth,
                                          unsigned height = kHeight) {
    return create_video_channel(kDevice, 1, width, height, 2, kTag, count);
  }

  // The text that a failed call printed on standard error.
  template <typename Call>
  static std::string Told(Call call) {
    ::testing::internal::CaptureStderr();
    call();
    return ::testing::internal::GetCapturedStderr();
  }

  static void Fail(const char* operation, int error, unsigned skip = 0) {
    tessaline_board_fault("video0", operation, skip, 1, error);
  }
};

}  // namespace tessaline_test
