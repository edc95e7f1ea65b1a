#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <vector>

#include "record/front/RecordTap.h"

namespace tool::serve {

// What one call of a handler delivered.
struct Delivery {
  bool is_image = false;
  unsigned first = 0;  // width, or the number of strips
  unsigned second = 0;
  double host_seconds = 0;  // since 1970, when it was handed over
  std::vector<std::uint8_t> bytes;
};

// Stands between the library's capture threads and everyone who wants frames. A capture thread
// never waits here for a reader: it copies a frame into the rings of other processes, which have
// room or drop it, and into the one place for the newest frame, if somebody asked for one.
//
// There is one, for the life of the process: the library's threads use it to the end.
class Feed {
 public:
  static Feed& Instance();

  // The library's handlers.
  static void OnImage(unsigned width, unsigned height, void* pixels);
  static void OnStrips(unsigned strips, unsigned bytes, void* data);
  // Its log.
  static void OnLogLine(log_Event* event);

  // The first delivery that comes from now on; nothing if none comes in time.
  std::optional<Delivery> Next(std::chrono::milliseconds patience);

  // Another process gets all frames from now on. Returns the number to remove it by; `begin` may
  // say first what the device is.
  unsigned AddTap(std::unique_ptr<RecordTap> tap, const std::function<void(RecordTap&)>& begin);
  void RemoveTap(unsigned number);
  void ForEachTap(const std::function<void(RecordTap&)>& use);
  std::size_t TapCount() const;
  std::uint64_t DroppedByTaps() const;  // frames, in all

  struct Counts {
    std::uint64_t strips = 0;
    std::uint64_t images = 0;
    std::uint64_t bytes = 0;
    std::uint64_t deliveries = 0;
  };
  Counts counts() const;

  // How long our part of the handlers took.
  static constexpr std::array kHandlerSeconds{20e-6, 50e-6, 100e-6, 200e-6, 500e-6, 1e-3,
                                              2e-3,  5e-3,  10e-3,  20e-3,  50e-3};
  struct Times {
    std::array<std::uint64_t, kHandlerSeconds.size() + 1> counts{};  // the last: longer
    double seconds = 0;
  };
  Times times() const;

 private:
  Feed() = default;
  void Deliver(bool is_image, unsigned first, unsigned second, const void* data, std::size_t bytes);
  void Offer(bool is_image, unsigned first, unsigned second, const void* data, std::size_t bytes);
  void Note(std::chrono::nanoseconds time);

  mutable std::shared_mutex taps_mutex_;  // exclusive: the list changes
  std::map<unsigned, std::unique_ptr<RecordTap>> taps_;
  unsigned next_tap_ = 1;
  std::uint64_t dropped_before_ = 0;  // by taps that are gone

  std::atomic<bool> wanted_ = false;
  std::mutex newest_mutex_;
  std::condition_variable arrived_;
  Delivery newest_;
  bool has_newest_ = false;

  std::atomic<std::uint64_t> strips_ = 0, images_ = 0, bytes_ = 0, deliveries_ = 0;
  std::array<std::atomic<std::uint64_t>, kHandlerSeconds.size() + 1> times_{};
  std::atomic<std::uint64_t> handler_ns_ = 0;
};

}  // namespace tool::serve
