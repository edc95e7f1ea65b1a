#pragma once

#include <atomic>
#include <cstdint>

// Two programs that take frames from the virtual board: an application of the library, and the
// shortest loop that does without it.
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

// What the bare loop does with an image: nothing, or the least that a change in place costs,
// which is to read and write every byte.
enum class Touch { kNothing, kEveryByte };

// Images, or strips, received so far.
inline std::atomic<std::uint64_t> frames{0};

using FrameHandler = void (*)(unsigned, unsigned, void*);

// Counts a call's frames.
void CountImage(unsigned, unsigned, void*);
void CountStrips(unsigned strips, unsigned, void*);

// Starts the library on a K3610.
void StreamThroughLibrary(const Scene& scene, FrameHandler handler);

// Sets up the same board through its registers, and takes every frame on a thread that dequeues
// and queues.
void StreamBare(const Scene& scene, Touch touch);

}  // namespace bench
