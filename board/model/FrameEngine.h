// The FPGA's frame work: it turns triggers into exposures, and exposures into image frames or
// strips.
//
// All of it runs on one thread, which starts with the first stream. Other threads never do frame
// work. A software trigger, an edge or a returned buffer sets an atomic and rings the bell, also in
// another process that shares the board. The
// thread does the work that is due, computes when the next timed trigger is due, and sleeps on the
// bell until then. So frames have one writer and one order.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "Doorbell.h"
#include "chips/ImageSensorChip.h"
#include "devices/CaptureQueue.h"
#include "model/FpgaModel.h"
#include "model/FrameChecksums.h"
#include "model/StripBuffer.h"
#include "ring/RecordRing.h"
#include "tessaline/board.h"
#include "tessaline/products.h"

namespace board {

using VeltranoSDK::products::PointLayout;

// What the frame engine is connected to.
struct EngineWiring {
  std::shared_ptr<FpgaModel> fpga;
  std::shared_ptr<ImageSensorChip> sensor;  // null: no frames
  std::function<double()> laser_power;      // 0 (off) .. 1
  CaptureQueue* images;
  CaptureQueue* strips;
  PointLayout points;
};

struct StreamCounters {
  std::atomic<std::uint64_t> frames{0}, delivered{0}, lost{0}, buffers{0};
};

// The sensor's frame that the extraction receives. For some sensors the FPGA skips columns.
SensorState AsReceived(const FpgaModel& fpga, SensorState sensor);

// Of the frames that the FPGA sends now.
struct ImageSize {
  unsigned width;
  unsigned height;
};
ImageSize SizeOf(const FpgaModel& fpga, const SensorState& as_received);

class BoardMemory;
class Player;
class Replay;

class FrameEngine {
 public:
  FrameEngine(BoardMemory& memory, EngineWiring wiring);
  ~FrameEngine();
  FrameEngine(const FrameEngine&) = delete;
  FrameEngine& operator=(const FrameEngine&) = delete;

  // Starts the thread if a stream is on and the thread is not running yet. Wakes the thread.
  void Attend();
  void Wake() { state_.bell.Ring(); }

  // These only set atomics for the thread.
  void SoftwareTrigger();
  // Call when the acquisition stops.
  void ForgetTriggers() {
    state_.software_triggers = 0;
    state_.timer_restarts = true;
  }
  void ExternalEdge();
  void ResetFrameId() { state_.frame_id = 0; }

  // Recorded frames and events come in the place of those of the scene. Call before software runs.
  void Play(std::unique_ptr<Replay> replay, std::function<void(const ring::Record&)> on_event);

  void SetPace(tessaline_board_pace pace);
  void SetStripsPerBuffer(unsigned strips);
  void SetHead(std::optional<Head> head);
  void SetTarget(std::optional<Target> target);
  std::shared_ptr<const View> GetView() const;
  struct tessaline_board_stream_stats Stats(int stream) const;
  FrameChecksums& Checksums() { return checksums_; }

  // For fork(). While the engine is locked, the thread is asleep and holds nothing.
  void LockForFork() { mutex_.lock(); }
  void UnlockAfterFork(bool child);

 private:
  void EnsureRunning();
  void SetView(View view);
  static void* Main(void* self);
  // Does the work that is due. Returns the nanoseconds until more work is due. A negative value
  // means that no work is due before the bell rings.
  std::int64_t Work();
  std::int64_t TimedTriggers(std::int64_t now);
  // Of the processes that share the board, one does the FPGA's work: the one that takes its frames.
  bool IsOurs();
  std::int64_t Triggers();
  bool Armed(const SensorState& sensor) const;
  std::int64_t SpacingNs() const;
  bool GateOpen() const;
  void Trigger(std::int64_t time_ns) { Trigger(time_ns, wiring_.fpga->CommittedRoute()); }
  void Trigger(std::int64_t time_ns, Route route);
  Exposure Expose(std::int64_t time_ns);
  void SendImage(const Exposure& exposure);
  void AddStrip(const Exposure& exposure);
  void FlushStrips();
  void LoseStrips(std::uint32_t strips);

  EngineWiring wiring_;
  // What all processes that share the board agree about.
  struct State {
    std::atomic<unsigned> software_triggers{0};
    std::atomic<unsigned> external_edges{0};
    std::atomic<bool> timer_restarts{false};
    std::atomic<std::uint64_t> frame_id{0};
    std::atomic<pid_t> worker{0};  // the process that did the work last
    Doorbell bell{Doorbell::Reach::kBoard};
  };

  const bool shared_;
  State& state_;
  std::mutex mutex_;  // held while the thread does anything
  std::atomic<bool> running_{false};
  pthread_t thread_{};
  std::atomic<bool> stop_{false};

  std::atomic<tessaline_board_pace> pace_{TESSALINE_BOARD_REAL_TIME};
  std::atomic<unsigned> strips_per_buffer_{10};
  StreamCounters image_counters_, strip_counters_;
  FrameChecksums checksums_;

  mutable std::mutex view_mutex_;  // of the pointer only
  std::shared_ptr<const View> view_ = std::make_shared<const View>();

  std::unique_ptr<Player> player_;

  // Used only by the thread.
  std::int64_t next_due_ns_ = -1;  // negative: the next trigger comes at once
  std::int64_t sensor_ready_ns_ = 0;
  StripBuffer pending_;
  std::vector<std::uint8_t> image_;    // the last image that needed a checksum
  std::int64_t pending_since_ns_ = 0;  // real time, not the board's
};

}  // namespace board
