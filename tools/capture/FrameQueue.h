#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "Failure.h"

namespace tool {

// What had not become a frame when a delivery came.
struct Losses {
  std::uint64_t malformed = 0;
  std::uint64_t fpga_lost = 0;      // strips the FPGA had no buffer for
  std::uint64_t triggers_lost = 0;  // came before the sensor was ready

  static Losses SoFar(bool images);
  // Where they come from, unless this process has started the device itself.
  using Source = Losses (*)(bool images);
  static void UseSource(Source source);
};

// What one call of a handler delivered.
struct Delivery {
  bool is_image;
  unsigned first;  // width, or the number of strips
  unsigned second;
  Losses losses;  // up to here
  std::vector<std::uint8_t> bytes;

  std::uint64_t Frames() const { return is_image ? 1 : first; }
};

// Stands between the library's capture threads, whose buffers must go back quickly, and the thread
// that writes files. It is bounded: frames without room are dropped and counted.
//
// There is one, for the life of the process: the library's threads use it to the end.
class FrameQueue {
 public:
  static FrameQueue& Instance();

  // The library's handlers.
  static void OnImage(unsigned width, unsigned height, void* data);
  static void OnStrips(unsigned strips, unsigned bytes, void* data);

  // Drops deliveries while closed. Starts closed.
  void Open();
  void Close();

  // Waits for the next delivery; nothing if none comes in time.
  std::optional<Delivery> Take(std::chrono::milliseconds patience);

  // No more will come, and why: Take() throws it once nothing waits.
  void End(const Failure& reason);

  // Drops what waits. False if nothing does.
  bool Abandon();

  // Frames that were dropped on the way here, so far.
  void SetDroppedBefore(std::uint64_t frames);

  // Frames dropped since Open(), for lack of room or by Abandon().
  std::uint64_t Dropped();

 private:
  FrameQueue() = default;
  void Put(bool is_image, unsigned first, unsigned second, const void* data, std::size_t bytes);

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Delivery> waiting_;
  std::size_t waiting_bytes_ = 0;
  std::uint64_t dropped_ = 0;
  std::uint64_t dropped_before_ = 0;
  std::uint64_t dropped_before_open_ = 0;
  std::optional<Failure> end_;
  bool open_ = false;
};

}  // namespace tool
