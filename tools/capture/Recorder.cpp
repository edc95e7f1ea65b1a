#include "capture/Recorder.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "Interrupt.h"
#include "tessaline/capture_statistics.h"
#include "tessaline/tessaline.h"
#include "watch/Terminal.h"

namespace tool {
namespace {

constexpr std::chrono::milliseconds kSlice{50};
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kShowEvery{200};
constexpr std::chrono::seconds kPatienceAtTheEnd{2};  // of somebody who wants an end

unsigned Stream(bool images) { return images ? TESSALINE_STREAM_IMAGES : TESSALINE_STREAM_STRIPS; }

}  // namespace

RecordingResult Recorder::Run(const RecordingLimits& limits, bool laser) {
  limits_ = limits;
  TessalineResetCaptureStatistics(Stream(images_));
  FrameQueue& queue = FrameQueue::Instance();
  queue.Open();
  start_ = shown_ = Clock::now();
  tool::Run(device_.Begin(laser));
  const auto guarded = [this](void (Recorder::*part)()) {
    try {
      if (!result_.failure) (this->*part)();
    } catch (const Failure& failure) {
      result_.failure = failure;
    }
  };
  guarded(&Recorder::TakeFrames);
  const bool in_time = IsOver();
  result_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  queue.Close();
  tool::Run(device_.End(laser));
  const Losses after = Losses::SoFar(images_);
  guarded(&Recorder::TakeRest);
  // What comes before the first frame and after the last that was wanted is no loss.
  if (!HasEnough()) result_.losses = after;
  result_.losses.fpga_lost -= before_.fpga_lost;
  result_.losses.triggers_lost -= before_.triggers_lost;
  const bool abandoned = !HasEnough() && queue.Abandon();
  result_.dropped = queue.Dropped();
  if (HasEnough()) {
    result_.losses.fpga_lost = std::min(result_.losses.fpga_lost, result_.missing);
    result_.dropped = std::min(result_.dropped, result_.missing);
  }
  result_.interrupted = Interrupted() && (!in_time || abandoned);
  ShowProgress(true);
  try {
    writer_.Finish();
  } catch (const Failure& failure) {
    if (!result_.failure) result_.failure = failure;
  }
  result_.frames = writer_.Frames();
  result_.warning = light_.Warning();
  return result_;
}

void Recorder::TakeFrames() {
  auto last_arrival = start_;
  while (!IsOver() && !Interrupted()) {
    if (const auto delivery = FrameQueue::Instance().Take(kSlice)) {
      last_arrival = Clock::now();
      Use(*delivery);
    } else if (limits_.seconds == 0 && Clock::now() - last_arrival > kPatience) {
      result_.no_more_came = true;
      return;
    }
    ShowProgress(false);
  }
}

void Recorder::TakeRest() {
  const auto begin = Clock::now();
  while (!HasEnough() && !(Interrupted() && Clock::now() - begin > kPatienceAtTheEnd)) {
    const auto delivery = FrameQueue::Instance().Take(std::chrono::milliseconds(0));
    if (!delivery) return;
    Use(*delivery);
    ShowProgress(false);
  }
}

bool Recorder::HasEnough() const { return limits_.frames != 0 && result_.frames >= limits_.frames; }

bool Recorder::IsOver() const {
  return HasEnough() ||
         (limits_.seconds != 0 &&
          std::chrono::duration<double>(Clock::now() - start_).count() >= limits_.seconds);
}

void Recorder::Use(const Delivery& delivery) {
  if (delivery.is_image != images_) return;  // left over from the start
  if (HasEnough()) return;
  if (result_.frames == 0) before_ = delivery.losses;
  result_.losses = delivery.losses;
  if (images_) {
    WriteFrame(ReadImage(delivery.first, delivery.second, delivery.bytes));
    return;
  }
  strips_.Read(delivery.first, delivery.bytes, [this](const Frame& frame) { WriteFrame(frame); });
}

void Recorder::WriteFrame(const Frame& frame) {
  if (HasEnough()) return;
  writer_.Write(frame);
  light_.Look(frame);
  ++result_.frames;
  result_.outside_field += frame.outside_field;
  if (last_id_ && frame.id > *last_id_ + 1) result_.missing += frame.id - *last_id_ - 1;
  last_id_ = frame.id;
  if (!first_encoder_stamp_) first_encoder_stamp_ = frame.encoder_stamp;
  result_.moved |= frame.encoder_stamp != *first_encoder_stamp_;
}

void Recorder::ShowProgress(bool last) {
  if (!IsScreen(STDERR_FILENO)) return;
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
