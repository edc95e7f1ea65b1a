#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "ring/RecordRing.h"

namespace board {

// Frames and events that a sensor once had, in the place of a scene. Another process puts them into
// rings, one for images, one for strips and one for events, and this reads them. A fourth has the
// state at the beginning, and nobody takes it out.
//
// Each kind keeps the pace it had since its stream was switched on: times between frames that were
// taken before and after a pause mean nothing.
class Replay {
 public:
  enum Stream : unsigned { kImages, kStrips, kEvents };

  // `text`: "IMAGES STRIPS EVENTS STATE SPEED": the rings' paths, and how much faster than recorded;
  // 0 is as fast as frames are taken. Null if it is no such text or a ring is not there.
  static std::unique_ptr<Replay> Open(std::string_view text);

  // What the registers and the EEPROM held when the recording began. Any process may ask.
  std::vector<ring::Record> StartState() const;

  // Becomes the one process that takes frames. False: another one does.
  bool Claim();

  // --- Only the frame engine's thread.

  // The next record of a kind; none if it is not there yet, or if all have been.
  std::optional<ring::Record> Next(Stream stream);
  // Nanoseconds until it is due; negative: not before another frame. Events are due when they were
  // in the recording, between its frames.
  std::int64_t Wait(Stream stream, const ring::Record& record);
  // It is on its way.
  void Sent(const ring::Record& frame);
  // Software has it in its hands, or it cannot have it: the next record is another one.
  void Take(Stream stream, const ring::Record& record);
  // Software has given the last frame's buffer back.
  void Return(Stream stream);
  // The stream is off: its next frame starts a new pace.
  void Rest(Stream stream) { lanes_[stream].paced = false; }
  bool Empty(Stream stream) const { return lanes_[stream].ring.UsedBytes() == 0; }
  bool Ended(Stream stream) const { return lanes_[stream].ring.Ended(); }

  // --- Any thread.

  // The FPGA's counter: it runs on, but not to a frame that software has not yet finished with,
  // which it would take for an old one after a stop.
  std::uint64_t Ticks(std::uint64_t since_power_up) const;

 private:
  struct Lane {
    explicit Lane(ring::RecordRing&& opened) : ring(std::move(opened)), position(ring.First()) {}
    ring::RecordRing ring;
    ring::RecordRing::Position position;
    ring::RecordRing::Position behind = 0;  // the record that was looked at last
    bool paced = false;
    std::int64_t start_ns = 0;        // real time
    std::int64_t start_stamp_ns = 0;  // the recording's
  };

  Replay(std::array<Lane, 3> lanes, ring::RecordRing state, double speed);
  void FindFirst();

  std::array<Lane, 3> lanes_;
  const ring::RecordRing state_;
  const double speed_;
  // Time stamps of the frames that come next, of those in software's hands, and of the last one
  // that it gave back.
  std::array<std::atomic<std::uint64_t>, 2> upcoming_;
  std::array<std::atomic<std::uint64_t>, 2> in_hands_;
  std::atomic<std::uint64_t> last_{0};
  std::uint64_t ticks_at_power_up_ = 0;
};

// Of an image's header and of a strip's: their size, and where the time stamp stands.
inline constexpr std::size_t kFrameHeaderBytes = 32;
inline constexpr std::size_t kTimeStampAt = 8;

// The time stamp in a frame's header, or in that of its first strip; 0 if it has none.
std::uint64_t TimeStampOf(const ring::Record& frame);

}  // namespace board
