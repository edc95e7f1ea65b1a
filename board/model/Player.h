#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "model/FrameEngine.h"
#include "model/Replay.h"

namespace board {

// Delivers the frames of a replay in the place of the engine's own, on the engine's thread. None is
// lost: a frame waits for a buffer as long as it takes.
class Player {
 public:
  // `on_event`: does what a recorded event says.
  using OnEvent = std::function<void(const ring::Record&)>;
  Player(std::unique_ptr<Replay> replay, const EngineWiring& wiring, StreamCounters& images,
         StreamCounters& strips, OnEvent on_event);

  // The process is a child now, which does not take its parent's frames.
  void Forked() { claimed_ = false; }
  // Does what is due. Returns as FrameEngine::Work().
  std::int64_t Work(bool armed, const SensorState& sensor);

 private:
  std::int64_t Frames(const SensorState& sensor);
  // Looks what software did with the last frame. False: it has not taken it yet.
  bool Settle(Replay::Stream stream);
  CaptureQueue& QueueOf(Replay::Stream stream) const;
  std::int64_t Events();
  // Whether it is in a buffer, has to be left out, or must wait for a buffer.
  enum class Fate { kDelivered, kUnfit, kNoBuffer };
  Fate SendImage(const ring::Record& record, const SensorState& sensor);
  Fate SendStrips(const ring::Record& record);
  void Count(Replay::Stream stream, const ring::Record& record, bool delivered);
  // Says so once a kind.
  void Complain(Replay::Stream stream, const std::string& what);

  const std::unique_ptr<Replay> replay_;
  const EngineWiring& wiring_;
  StreamCounters* const counters_[2];
  const OnEvent on_event_;
  // The one frame of each stream that is with software. The next comes once software has taken it:
  // what is left in the queue when software stops the stream or clears the buffers is sent again.
  struct Sent {
    bool taken = false;
  };
  std::optional<Sent> sent_[2];
  bool claimed_ = false;
  bool refused_ = false;
  bool complained_[2] = {};
};

}  // namespace board
