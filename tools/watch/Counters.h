#pragma once

#include <array>

#include "Json.h"
#include "tessaline/capture_statistics.h"

namespace tool {

// The capture streams by name.
struct CaptureStream {
  const char* name;
  unsigned number;
};
inline constexpr std::array kCaptureStreams{CaptureStream{"images", TESSALINE_STREAM_IMAGES},
                                            CaptureStream{"strips", TESSALINE_STREAM_STRIPS}};

// The counters of a stream; one group per line.
struct CaptureCounter {
  unsigned group;
  const char* name;
  std::uint64_t tessaline_capture_statistics::*value;
};
inline constexpr std::array kCaptureCounters{
    CaptureCounter{0, "dequeued", &tessaline_capture_statistics::dequeued},
    CaptureCounter{0, "delivered", &tessaline_capture_statistics::delivered},
    CaptureCounter{0, "suppressed", &tessaline_capture_statistics::suppressed},
    CaptureCounter{0, "released", &tessaline_capture_statistics::released},
    CaptureCounter{0, "malformed", &tessaline_capture_statistics::malformed},
    CaptureCounter{0, "dequeue_errors", &tessaline_capture_statistics::dequeue_errors},
    CaptureCounter{1, "ids_seen", &tessaline_capture_statistics::ids_seen},
    CaptureCounter{1, "id_gaps", &tessaline_capture_statistics::id_gaps},
    CaptureCounter{1, "ids_missing", &tessaline_capture_statistics::ids_missing},
    CaptureCounter{1, "ids_out_of_order", &tessaline_capture_statistics::ids_out_of_order},
    CaptureCounter{2, "callbacks", &tessaline_capture_statistics::callbacks},
    CaptureCounter{2, "callback_total_ns", &tessaline_capture_statistics::callback_total_ns},
    CaptureCounter{2, "callback_mean_ns", &tessaline_capture_statistics::callback_mean_ns},
    CaptureCounter{2, "callback_max_ns", &tessaline_capture_statistics::callback_max_ns}};

// Null if this process has taken nothing from the stream.
inline Json CaptureCounters(unsigned stream) {
  tessaline_capture_statistics statistics{};
  TessalineGetCaptureStatistics(stream, &statistics);
  if (statistics.dequeued == 0 && statistics.dequeue_errors == 0) return nullptr;
  Json json;
  for (const CaptureCounter& counter : kCaptureCounters) {
    json[counter.name] = statistics.*counter.value;
  }
  return json;
}

}  // namespace tool
