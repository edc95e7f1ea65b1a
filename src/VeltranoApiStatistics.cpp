#include "Runnable/CaptureStatistics.h"
#include "Runnable/CaptureStripStream.h"
#include "Runnable/CaptureVideoStream.h"
#include "VeltranoApiCall.h"
#include "tessaline/capture_statistics.h"

namespace {

using namespace VeltranoSDK;       // NOLINT(google-build-using-namespace): this file is its C face
using namespace VeltranoSDK::api;  // NOLINT(google-build-using-namespace)

// Null, with an ERROR in the log, when the number is not a stream.
CaptureStatistics* StatisticsOf(const Entry& entry, unsigned int stream) {
  const auto* const runnables = RunnableObjectManagerHolder::Instance();
  switch (stream) {
    case TESSALINE_STREAM_IMAGES:
      return &runnables->video_->statistics();
    case TESSALINE_STREAM_STRIPS:
      return &runnables->strip_->statistics();
    default:
      entry.Error("no such stream, 0 is images and 1 strips");
      return nullptr;
  }
}

int Fill(const CaptureStatistics& statistics, tessaline_capture_statistics& out) {
  const CaptureStatistics::Counts counts = statistics.Snapshot();
  out = {
      .dequeued = counts.dequeued,
      .delivered = counts.delivered,
      .suppressed = counts.suppressed,
      .released = counts.released,
      .malformed = counts.malformed,
      .dequeue_errors = counts.dequeue_errors,
      .ids_seen = counts.ids.seen,
      .id_gaps = counts.ids.gaps,
      .ids_missing = counts.ids.missing,
      .ids_out_of_order = counts.ids.out_of_order,
      .callbacks = counts.callbacks,
      .callback_total_ns = counts.callback_total_ns,
      .callback_mean_ns = counts.callbacks == 0 ? 0 : counts.callback_total_ns / counts.callbacks,
      .callback_max_ns = counts.callback_max_ns,
  };
  return 0;
}

// Calls work(statistics); -1 when the number is not a stream.
template <typename Work>
int OnStatistics(const Entry& entry, unsigned int stream, Work work) {
  return Guarded<int>(entry, [&] {
    CaptureStatistics* const statistics = StatisticsOf(entry, stream);
    return statistics == nullptr ? -1 : work(*statistics);
  });
}

}  // namespace

extern "C" {

int TessalineGetCaptureStatistics(unsigned int stream, struct tessaline_capture_statistics* out) {
  const Entry entry(__func__);
  if (out == nullptr) {
    entry.Error("there is no place for the counters, a null pointer");
    return -1;
  }
  return OnStatistics(
      entry, stream, [out](const CaptureStatistics& statistics) { return Fill(statistics, *out); });
}

int TessalineResetCaptureStatistics(unsigned int stream) {
  return OnStatistics(__func__, stream, [](CaptureStatistics& statistics) {
    statistics.Reset();
    return 0;
  });
}

}  // extern "C"
