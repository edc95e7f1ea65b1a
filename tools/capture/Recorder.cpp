#include "capture/Recorder.h"

#include <unistd.h>

#include <cstdio>

#include "Interrupt.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"

namespace tool {
namespace {

constexpr std::chrono::milliseconds kSlice{50};
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kShowEvery{200};

unsigned Stream(bool images) { return images ? TESSALINE_STREAM_IMAGES : TESSALINE_STREAM_STRIPS; }

}  // namespace

RecordingResult Recorder::Run(const RecordingLimits& limits, bool laser) {
  limits_ = limits;
  TessalineResetCaptureStatistics(Stream(images_));
  FrameQueue& queue = FrameQueue::Instance();
  queue.Open();
  start_ = shown_ = Clock::now();
  tool::Run(device_.Begin(laser));
  try {
    auto last_arrival = start_;
    while (!Complete()) {
      if (const auto delivery = queue.Take(kSlice)) {
        last_arrival = Clock::now();
        Use(*delivery);
      } else if (limits.seconds == 0 && Clock::now() - last_arrival > kPatience) {
        result_.no_more_came = true;
        break;
      }
      if (Interrupted()) break;
      ShowProgress(false);
    }
  } catch (const Failure& failure) {
    result_.failure = failure;
  }
  result_.interrupted = Interrupted() && !Complete();
  result_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  queue.Close();
  tool::Run(device_.End(laser));
  result_.dropped = queue.Dropped();
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(Stream(images_), &statistics);
  result_.malformed = statistics.malformed;
  result_.fpga_lost = GetCallbackLostNum();
  result_.triggers_lost = GetXtrigLostSta();
  ShowProgress(true);
  try {
    writer_.Finish();
  } catch (const Failure& failure) {
    if (!result_.failure) result_.failure = failure;
  }
  result_.frames = writer_.Frames();
  return result_;
}

bool Recorder::Complete() const {
  if (limits_.frames != 0 && result_.frames >= limits_.frames) return true;
  return limits_.seconds != 0 &&
         std::chrono::duration<double>(Clock::now() - start_).count() >= limits_.seconds;
}

void Recorder::Use(const Delivery& delivery) {
  if (delivery.is_image != images_) return;  // left over from the start
  if (images_) {
    WriteFrame(ReadImage(delivery.first, delivery.second, delivery.bytes));
    return;
  }
  ReadStrips(delivery.first, delivery.bytes, point_bytes_,
             [this](const Frame& frame) { WriteFrame(frame); });
}

void Recorder::WriteFrame(const Frame& frame) {
  if (limits_.frames != 0 && result_.frames >= limits_.frames) return;
  writer_.Write(frame);
  ++result_.frames;
  if (last_id_ && frame.id > *last_id_ + 1) result_.missing += frame.id - *last_id_ - 1;
  last_id_ = frame.id;
}

void Recorder::ShowProgress(bool last) {
  if (isatty(STDERR_FILENO) == 0) return;
  const auto now = Clock::now();
  if (!last && now - shown_ < kShowEvery) return;
  shown_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(Stream(images_), &statistics);
  fprintf(stderr, "\r%s %llu%s  %.1f/s  missing %llu  malformed %llu \033[K%s",
          images_ ? "images" : "profiles", static_cast<unsigned long long>(result_.frames),
          limits_.frames == 0 ? "" : fmt::format(" of {}", limits_.frames).c_str(),
          static_cast<double>(result_.frames) / seconds,
          static_cast<unsigned long long>(result_.missing),
          static_cast<unsigned long long>(statistics.malformed), last ? "\n" : "");
  fflush(stderr);
}

}  // namespace tool
