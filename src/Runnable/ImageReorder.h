#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tessaline/frames.h"

namespace VeltranoSDK {

// An image as the FPGA writes it: four planes, a quarter of the full frame apart, and a header
// behind the last one. Plane k holds the 16-byte blocks k, k + 4, k + 8... of the image.
struct ImageFrame {
  std::uint64_t full_pixels;   // of the sensor: the planes' distance times four
  std::uint64_t image_pixels;  // of the region of interest
};

inline constexpr std::size_t kImageHeaderBytes = sizeof(tessaline_image_header);

// Scratch memory that ReorderImage keeps from image to image; it grows with the first ones.
class ReorderScratch {
 public:
  // A page: buffers begin on one, so a chunk is read and written without leaving the page that the
  // prefetcher is at.
  static constexpr std::size_t kChunkBytes = 4096;
  // The bytes that follow a chunk in its copy, for a block that begins in the chunk.
  static constexpr std::size_t kOverlapBytes = 16;

  // Makes room for this number of chunks; none has a copy yet.
  void Begin(std::size_t chunks);
  // The copy of a chunk that was saved and not released.
  const std::byte* Saved(std::size_t chunk) const;
  // `size`: the chunk, and as much of the overlap as the buffer has.
  void Save(std::size_t chunk, const std::byte* data, std::size_t size);
  void Release(std::size_t chunk);

  std::size_t Bytes() const { return slots_.size(); }

 private:
  static constexpr std::uint32_t kNowhere = 0xFFFFFFFF;
  static constexpr std::size_t kSlotBytes = kChunkBytes + 64;  // whole cache lines
  static_assert(kSlotBytes >= kChunkBytes + kOverlapBytes);

  std::vector<std::uint32_t> slot_of_chunk_;
  std::vector<std::uint32_t> free_slots_;  // last released, first used: still cached
  std::vector<std::byte> slots_;
};

// Puts an image into natural pixel order, in place: pixels from offset 0, the header right behind
// them. Pixels beyond the last whole group of 64 become zero. Returns false and leaves the buffer
// unchanged when the image does not fit.
bool ReorderImage(std::byte* buffer, std::size_t size, const ImageFrame& frame,
                  ReorderScratch& scratch);

}  // namespace VeltranoSDK
