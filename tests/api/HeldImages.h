#pragma once

#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include "support/Waiting.h"
#include "tessaline/board.h"
#include "tessaline/tessaline.h"

namespace tessaline_test {

// An image handler that can be held: while the first image is in the handler, others wait in the
// driver however long the test takes. Only software triggers make them.
class HeldImages {
 public:
  // Delivers image 1, stops the acquisition while image 2 waits, and releases the handler.
  static void StopBetweenTwo() {
    RegisterEventHandler(TESSALINE_EVENT_IMAGE, reinterpret_cast<tessaline_event_handler>(OnImage));
    {
      const std::lock_guard held(gate_);
      TriggerOnce();
      ASSERT_TRUE(Eventually([] { return Arrived().size() == 1; }));
      TriggerOnce();
      SetGlobalControl(0);
    }
  }

  // Returns when the image is in a buffer of the driver.
  static void TriggerOnce() {
    const auto before = Produced();
    SetTriMode(2);
    SetGlobalControl(1);
    TricontrolSWTrigger();
    ASSERT_TRUE(Eventually([=] { return Produced() > before; }));
  }

  // The frame ids, once `expected` ids have arrived and no more do.
  static std::vector<std::uint64_t> Delivered(std::size_t expected) {
    Eventually([&] { return Arrived().size() >= expected; });
    ReallyWait(std::chrono::milliseconds(50));
    return Arrived();
  }

 private:
  static std::vector<std::uint64_t> Arrived() {
    const std::lock_guard lock(mutex_);
    return ids_;
  }

  static std::uint64_t Produced() {
    struct tessaline_board_stream_stats stats {};
    tessaline_board_stream_stats(0, &stats);
    return stats.delivered;
  }

  static void OnImage(unsigned int width, unsigned int height, void* pixels) {
    std::uint64_t id = 0;
    memcpy(&id, static_cast<char*>(pixels) + std::size_t{width} * height, sizeof id);
    {
      const std::lock_guard lock(mutex_);
      ids_.push_back(id);
    }
    const std::lock_guard wait(gate_);
  }

  // Never destroyed: the handler may run until the process ends.
  static inline std::mutex& gate_ = *new std::mutex;
  static inline std::mutex& mutex_ = *new std::mutex;
  static inline std::vector<std::uint64_t>& ids_ = *new std::vector<std::uint64_t>;
};

}  // namespace tessaline_test
