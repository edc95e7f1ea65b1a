#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace tool {

// What one call of a handler brought.
struct Delivery {
  bool is_image;
  unsigned first;  // width, or the number of strips
  unsigned second;
  std::vector<std::uint8_t> bytes;
};

// Between the library's capture threads, whose buffers must go back quickly, and the
// thread that writes files. Bounded: what has no room is counted, not forgotten.
//
// There is one, for the life of the process: the library's threads use it to the end.
class FrameQueue {
 public:
  static FrameQueue& Instance();

  // The library's handlers.
  static void OnImage(unsigned width, unsigned height, void* data);
  static void OnStrips(unsigned strips, unsigned bytes, void* data);

  // What comes while it is closed is dropped: it begins closed.
  void Open();
  void Close();

  // The next delivery, once there is one; nothing when none came in time.
  std::optional<Delivery> Take(std::chrono::milliseconds patience);

  // Deliveries since Open() for which there was no room.
  std::uint64_t Dropped();

 private:
  FrameQueue() = default;
  void Put(bool is_image, unsigned first, unsigned second, const void* data, std::size_t bytes);

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Delivery> waiting_;
  std::size_t waiting_bytes_ = 0;
  std::uint64_t dropped_ = 0;
  bool open_ = false;
};

}  // namespace tool
