#pragma once

#include <atomic>
#include <cstdint>

// Two programs that take frames from the virtual board: an application of the library, and the
// shortest loop that works without the library.
namespace bench {

enum class Stream { kImages, kStrips };

// A trigger every 4 ms, or whenever a buffer is free.
enum class Pace { kTimed, kFreeRun };

inline constexpr unsigned kFullColumns = 1456;
inline constexpr unsigned kFullRows = 1088;

struct Scene {
  Stream stream;
  Pace pace;
  unsigned rows = kFullRows;  // of an image
};

// What the bare loop does with an image: nothing, or read and write every byte, which is the least
// that an in-place change costs.
enum class Touch { kNothing, kEveryByte };

// The number of images or strips received so far.
inline std::atomic<std::uint64_t> frames{0};

using FrameHandler = void (*)(unsigned, unsigned, void*);

// Counts the frames of one callback.
void CountImage(unsigned, unsigned, void*);
void CountStrips(unsigned strips, unsigned, void*);

// Starts the library on a K3610.
void StreamThroughLibrary(const Scene& scene, FrameHandler handler);

// Sets up the same board through its registers. One thread dequeues every frame and queues it
// again.
void StreamBare(const Scene& scene, Touch touch);

}  // namespace bench
