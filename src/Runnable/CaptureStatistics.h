#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "Runnable/FrameIds.h"
#include "thread/Published.h"

namespace VeltranoSDK {

// What became of a frame: exactly one of these.
enum class Fate { kDelivered, kSuppressed, kReleased, kMalformed };

// What a capture thread counts. The thread counts privately and publishes after each frame, so no
// reader sees half a frame. A reset is a request that it carries out with the next frame.
class CaptureStatistics {
 public:
  struct Counts {
    std::uint64_t epoch;  // resets carried out
    std::uint64_t dequeued;
    std::uint64_t delivered;
    std::uint64_t suppressed;
    std::uint64_t released;
    std::uint64_t malformed;
    std::uint64_t dequeue_errors;
    FrameIds::Counts ids;
    std::uint64_t callbacks;
    std::uint64_t callback_total_ns;
    std::uint64_t callback_max_ns;
  };

  // --- For any thread

  Counts Snapshot() const;
  void Reset();
  // The next frame's id need not follow the previous one.
  void ExpectOtherIds();

  // --- For the capture thread

  void DequeueFailed();
  void Dequeued();  // opens a frame
  void SawId(std::uint64_t id) { ids_.Follow(id); }
  void SawIds(std::uint64_t first, std::uint64_t count) { ids_.FollowRun(first, count); }
  template <typename Call>
  void Time(Call&& call) {
    const std::uint64_t before = Nanoseconds();
    std::forward<Call>(call)();
    AddCallback(Nanoseconds() - before);
  }
  void Done(Fate fate);  // closes it

 private:
  static std::uint64_t Nanoseconds();
  void GrantRequests();
  void AddCallback(std::uint64_t nanoseconds);
  void Publish();

  Counts counts_{};
  FrameIds ids_;
  Utility::Published<Counts> published_;
  std::atomic<std::uint64_t> resets_{0};
  std::atomic<bool> other_ids_{false};
};

}  // namespace VeltranoSDK
